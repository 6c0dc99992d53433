#include "platform/diagnosis/packet_filter.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace quillbox::diagnosis {

namespace {

constexpr int kMulticastDnsPort = 5353;

QString textIn(const QJsonObject& object, const char* key)
{
    return object.value(QLatin1StringView(key)).toString();
}

QJsonObject objectIn(const QJsonObject& object, const char* key)
{
    return object.value(QLatin1StringView(key)).toObject();
}

bool has(const QJsonObject& object, const char* key)
{
    return object.contains(QLatin1StringView(key));
}

/// What a rule does with the packets that it matches.
struct Rule {
    bool isDrop = false;
    bool namesMulticastDns = false;
    std::vector<QString> targets; ///< chains that it jumps to
};

/// Whether the value is 5353, or a range that contains it.
bool isOrSpansPort(const QJsonValue& value)
{
    if (value.isDouble())
        return value.toInt() == kMulticastDnsPort;
    const QJsonArray range = value.toObject().value(QLatin1StringView("range")).toArray();
    return range.size() == 2 && range[0].toInt() <= kMulticastDnsPort
           && kMulticastDnsPort <= range[1].toInt();
}

/// Whether 5353 is among the ports of a match: a number, a range, or a set of these.
bool holdsPort(const QJsonValue& value)
{
    const QJsonObject object = value.toObject();
    const QJsonValue ports = has(object, "set") ? object.value(QLatin1StringView("set")) : value;
    const QJsonArray each = ports.isArray() ? ports.toArray() : QJsonArray{ports};
    return std::any_of(each.begin(), each.end(), isOrSpansPort);
}

bool isPortMatch(const QJsonObject& match)
{
    const QJsonObject payload = objectIn(objectIn(match, "left"), "payload");
    const QString protocol = textIn(payload, "protocol");
    return textIn(payload, "field") == QStringLiteral("dport")
           && (protocol == QStringLiteral("udp") || protocol == QStringLiteral("th"))
           && textIn(match, "op") == QStringLiteral("==")
           && holdsPort(match.value(QLatin1StringView("right")));
}

Rule ruleOf(const QJsonObject& object)
{
    Rule rule;
    for (const auto& each : object.value(QLatin1StringView("expr")).toArray()) {
        const QJsonObject part = each.toObject();
        rule.isDrop = rule.isDrop || has(part, "drop") || has(part, "reject");
        rule.namesMulticastDns = rule.namesMulticastDns || isPortMatch(objectIn(part, "match"));
        for (const char* leap : {"jump", "goto"}) {
            if (has(part, leap))
                rule.targets.push_back(textIn(objectIn(part, leap), "target"));
        }
    }
    return rule;
}

struct Chain {
    QString hook;
    bool isDropping = false; ///< by its policy
    std::vector<Rule> rules;
};

/// A chain's family, table and name: names are unique within a table only.
using ChainKey = std::pair<QString, QString>;

ChainKey keyOf(const QJsonObject& object, const char* name)
{
    return {textIn(object, "family") + QLatin1Char(' ') + textIn(object, "table"),
            textIn(object, name)};
}

using Chains = std::map<ChainKey, Chain>;

/// All rules of a chain and of the chains that it jumps to, each chain once.
std::vector<Rule> rulesFrom(const Chains& chains, const ChainKey& first)
{
    std::vector<Rule> rules;
    std::set<ChainKey> visited;
    std::vector<ChainKey> pending{first};
    while (!pending.empty()) {
        const ChainKey key = std::move(pending.back());
        pending.pop_back();
        const auto chain = chains.find(key);
        if (chain == chains.end() || !visited.insert(key).second)
            continue;
        for (const Rule& rule : chain->second.rules) {
            rules.push_back(rule);
            for (const QString& target : rule.targets)
                pending.emplace_back(key.first, target);
        }
    }
    return rules;
}

void judgeInput(const Chain& chain, const std::vector<Rule>& rules, FirewallFacts& facts)
{
    facts.dropsInput = facts.dropsInput || chain.isDropping;
    for (const Rule& rule : rules) {
        facts.dropsInput = facts.dropsInput || rule.isDrop;
        facts.dropsMulticastDns =
            facts.dropsMulticastDns || (rule.namesMulticastDns && rule.isDrop);
    }
}

void judgeOutput(const Chain& chain, const std::vector<Rule>& rules, FirewallFacts& facts)
{
    facts.dropsOutput = facts.dropsOutput || chain.isDropping;
    for (const Rule& rule : rules)
        facts.dropsOutput = facts.dropsOutput || rule.isDrop;
}

Chains chainsIn(const QJsonArray& entries)
{
    Chains chains;
    for (const auto& each : entries) {
        const QJsonObject entry = each.toObject();
        if (const QJsonObject chain = objectIn(entry, "chain"); !chain.isEmpty()) {
            Chain& made = chains[keyOf(chain, "name")];
            made.hook = textIn(chain, "hook");
            made.isDropping = textIn(chain, "policy") == QStringLiteral("drop");
        }
        if (const QJsonObject rule = objectIn(entry, "rule"); !rule.isEmpty())
            chains[keyOf(rule, "chain")].rules.push_back(ruleOf(rule));
    }
    return chains;
}

} // namespace

bool readRules(const std::string& json, FirewallFacts& facts)
{
    const auto document = QJsonDocument::fromJson(QByteArray::fromStdString(json));
    const QJsonValue entries = document.object().value(QLatin1StringView("nftables"));
    if (!entries.isArray())
        return false;
    const Chains chains = chainsIn(entries.toArray());
    for (const auto& [key, chain] : chains) {
        const bool isInput = chain.hook == QStringLiteral("input")
                             || chain.hook == QStringLiteral("prerouting")
                             || chain.hook == QStringLiteral("ingress");
        const bool isOutput =
            chain.hook == QStringLiteral("output") || chain.hook == QStringLiteral("postrouting");
        if (!isInput && !isOutput)
            continue;
        const auto rules = rulesFrom(chains, key);
        if (isInput)
            judgeInput(chain, rules, facts);
        else
            judgeOutput(chain, rules, facts);
    }
    return true;
}

} // namespace quillbox::diagnosis
