#include "platform/diagnosis/packet_filter.h"

#include <string>

#include <gtest/gtest.h>

namespace quillbox::diagnosis {

namespace {

std::string chain(const std::string& name, const std::string& more)
{
    return R"({"chain": {"family": "inet", "table": "t", "name": ")" + name + R"(", "handle": 1)"
           + more + "}}";
}

std::string base(const std::string& hook, const std::string& policy = "accept")
{
    return chain("base", R"(, "type": "filter", "hook": ")" + hook + R"(", "prio": 0, "policy": ")"
                             + policy + '"');
}

std::string rule(const std::string& expressions, const std::string& in = "base")
{
    return R"({"rule": {"family": "inet", "table": "t", "chain": ")" + in
           + R"(", "handle": 2, "expr": [)" + expressions + "]}}";
}

std::string port(const std::string& right, const std::string& protocol = "udp",
                 const std::string& field = "dport")
{
    return R"({"match": {"op": "==", "left": {"payload": {"protocol": ")" + protocol
           + R"(", "field": ")" + field + R"("}}, "right": )" + right + "}}";
}

const std::string kDrop = R"({"drop": null})";
const std::string kAccept = R"({"accept": null})";

std::string dropping(const std::string& match)
{
    return rule(match + ',' + kDrop);
}

FirewallFacts read(const std::string& entries)
{
    FirewallFacts facts;
    EXPECT_TRUE(
        readRules(R"({"nftables": [{"metainfo": {"version": "1.0.6"}},)" + entries + "]}", facts));
    return facts;
}

TEST(PacketFilter, nothingDropsWhereNothingIs)
{
    FirewallFacts facts;
    EXPECT_TRUE(readRules(R"({"nftables": []})", facts));
    EXPECT_FALSE(facts.dropsInput || facts.dropsOutput || facts.dropsMulticastDns);
}

TEST(PacketFilter, anythingElseIsRefused)
{
    FirewallFacts facts;
    for (const char* text : {"", "{}", "[]", "nonsense", R"({"nftables": 1})"})
        EXPECT_FALSE(readRules(text, facts)) << text;
}

TEST(PacketFilter, aPolicyDrops)
{
    EXPECT_TRUE(read(base("input", "drop")).dropsInput);
    EXPECT_FALSE(read(base("input")).dropsInput);
    EXPECT_TRUE(read(base("output", "drop")).dropsOutput);
    EXPECT_FALSE(read(base("output", "drop")).dropsInput);
}

TEST(PacketFilter, aRuleDropsOrRejects)
{
    EXPECT_TRUE(read(base("input") + ',' + rule(kDrop)).dropsInput);
    EXPECT_TRUE(
        read(base("prerouting") + ',' + rule(R"({"reject": {"type": "tcp reset"}})")).dropsInput);
    EXPECT_TRUE(read(base("output") + ',' + rule(kDrop)).dropsOutput);
    EXPECT_FALSE(read(base("input") + ',' + rule(kAccept)).dropsInput);
}

TEST(PacketFilter, whatIsForwardedIsOfOthers)
{
    const auto facts = read(base("forward", "drop") + ',' + rule(kDrop));
    EXPECT_FALSE(facts.dropsInput || facts.dropsOutput || facts.dropsMulticastDns);
}

TEST(PacketFilter, aRuleThatNamesThePortIsKnown)
{
    for (const char* right :
         {"5353", R"({"set": [137, 5353]})", R"({"range": [5000, 6000]})",
          R"({"set": [{"range": [5353, 5354]}]})", R"({"range": [5000, 5353]})"})
        EXPECT_TRUE(read(base("input") + ',' + dropping(port(right))).dropsMulticastDns) << right;
    EXPECT_TRUE(read(base("input") + ',' + dropping(port("5353", "th"))).dropsMulticastDns);
    for (const auto& match : {port("5354"), port("5353", "tcp"), port("5353", "udp", "sport"),
                              port(R"({"range": [1, 1024]})")})
        EXPECT_FALSE(read(base("input") + ',' + dropping(match)).dropsMulticastDns) << match;
    EXPECT_FALSE(read(base("input") + ',' + rule(port("5353") + ',' + kAccept)).dropsMulticastDns);
}

TEST(PacketFilter, aRuleForAllOtherPortsDoesNotNameThePort)
{
    std::string match = port("5353");
    match.replace(match.find("=="), 2, "!=");
    EXPECT_FALSE(read(base("input") + ',' + dropping(match)).dropsMulticastDns);
}

TEST(PacketFilter, packetsPassSeveralHooks)
{
    for (const char* hook : {"ingress", "prerouting", "input"})
        EXPECT_TRUE(read(base(hook, "drop")).dropsInput) << hook;
    for (const char* hook : {"output", "postrouting"})
        EXPECT_TRUE(read(base(hook, "drop")).dropsOutput) << hook;
}

TEST(PacketFilter, chainsThatAreLedToCountAndOthersDoNot)
{
    const std::string other = chain("other", "") + ',' + rule(kDrop, "other");
    EXPECT_FALSE(read(base("input") + ',' + other).dropsInput);
    for (const char* leap : {"jump", "goto"})
        EXPECT_TRUE(read(base("input") + ','
                         + rule(std::string("{\"") + leap + R"(": {"target": "other"}})") + ','
                         + other)
                        .dropsInput)
            << leap;
}

TEST(PacketFilter, chainsThatLeadInACircleEnd)
{
    const std::string toBase = R"({"jump": {"target": "base"}})";
    EXPECT_FALSE(read(base("input") + ',' + rule(toBase)).dropsInput);
}

} // namespace

} // namespace quillbox::diagnosis
