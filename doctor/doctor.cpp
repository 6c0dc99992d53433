#include "doctor/doctor.h"

#include "control/control_message.h"
#include "doctor/doctor_checks.h"
#include "ui/shown_text.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <array>
#include <utility>

namespace quillbox {

namespace {

constexpr const char* kIndent = "      ";

const char* wordOf(Finding::Result result)
{
    constexpr std::array kWords{"OK", "WARN", "FAIL"};
    return kWords.at(static_cast<std::size_t>(result));
}

} // namespace

std::vector<Finding> diagnose(const DoctorFacts& facts)
{
    using namespace doctor;
    std::vector<Finding> all;
    const auto add = [&all](std::vector<Finding> findings) {
        std::move(findings.begin(), findings.end(), std::back_inserter(all));
    };
    add(checkInterfaces(facts.system));
    add(checkMulticast(facts.system));
    add(checkOtherHosts(facts.system));
    add(checkVpn(facts.system));
    add(checkFirewall(facts.system));
    add(checkEngine(facts.system));
    add(checkPhones(facts));
    add(checkRunningCopy(facts.copy));
    add(checkStartSettings(facts));
    add(checkFileBrowser(facts.system));
    add(checkNames(facts.system));
    add(checkStatusHost(facts.system));
    return all;
}

RunningCopyFacts askRunningCopy(RunningApplication* copy, std::chrono::milliseconds limit)
{
    using State = RunningCopyFacts::State;
    if (!copy)
        return {.state = State::NotRunning, .status = {}};
    const auto text = copy->ask(encoded(ControlRequest{.command = ControlCommand::Status}), limit);
    if (!text)
        return {.state = State::Silent, .status = {}};
    const auto answer = decodedAnswer(*text);
    if (!answer || !answer->status)
        return {.state = State::OtherVersion, .status = {}};
    return {.state = State::Answered, .status = answer->status};
}

std::string relayHostIn(const RunningCopyFacts& copy)
{
    if (!copy.status)
        return {};
    const auto& relays = copy.status->relays;
    const auto named =
        std::ranges::find_if(relays, [](const auto& relay) { return !relay.host.empty(); });
    return named == relays.end() ? std::string() : named->host;
}

std::string plainText(const std::vector<Finding>& findings)
{
    std::string text;
    for (const Finding& finding : findings) {
        std::string word = wordOf(finding.result);
        word.resize(std::string_view(kIndent).size(), ' ');
        text += word + shownUtf8(finding.check + ": " + finding.text) + '\n';
        if (!finding.advice.empty())
            text += kIndent + shownUtf8(finding.advice) + '\n';
    }
    return text;
}

std::string jsonText(const std::vector<Finding>& findings)
{
    QJsonArray list;
    for (const Finding& finding : findings) {
        list.append(
            QJsonObject{{QStringLiteral("check"), QString::fromStdString(finding.check)},
                        {QStringLiteral("result"), QLatin1StringView(wordOf(finding.result))},
                        {QStringLiteral("text"), QString::fromStdString(finding.text)},
                        {QStringLiteral("advice"), QString::fromStdString(finding.advice)}});
    }
    return jsonText(QJsonDocument(list));
}

bool hasFailure(const std::vector<Finding>& findings)
{
    return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.result == Finding::Result::Fail;
    });
}

} // namespace quillbox
