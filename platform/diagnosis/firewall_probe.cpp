#include "platform/diagnosis/firewall_probe.h"

#include "platform/diagnosis/packet_filter.h"
#include "platform/diagnosis/small_file.h"
#include "platform/diagnosis/tool_output.h"
#include "platform/text.h"

#include <filesystem>
#include <string>

namespace quillbox::diagnosis {

namespace {

using Rules = FirewallFacts::Rules;

Seen probeUfw(const std::filesystem::path& root)
{
    const auto configuration = root / "etc/ufw/ufw.conf";
    std::error_code error;
    if (!std::filesystem::exists(configuration, error))
        return error ? Seen::Unknown : Seen::No;
    const auto text = readSmallFile(configuration);
    return text ? ufwIn(*text) : Seen::Unknown;
}

bool isRefusal(const std::string& complaints)
{
    return complaints.find("ermission denied") != std::string::npos
           || complaints.find("not permitted") != std::string::npos;
}

void probeRules(FirewallFacts& facts, std::chrono::milliseconds limit)
{
    const std::string nft = findTool("nft");
    if (nft.empty()) {
        const bool isAnything = facts.ufw == Seen::Yes || !findTool("iptables").empty()
                                || !findTool("iptables-legacy").empty();
        facts.rules = isAnything ? Rules::Unknown : Rules::NoProgram;
        return;
    }
    const ToolOutput said = runTool({nft, "-j", "list", "ruleset"}, limit);
    if (said.end == ToolOutput::End::Failed && isRefusal(said.complaints))
        facts.rules = Rules::NotAllowed;
    else if (said.end == ToolOutput::End::Done && readRules(said.output, facts))
        facts.rules = Rules::Read;
}

} // namespace

Seen ufwIn(std::string_view configuration)
{
    constexpr std::string_view kKey = "ENABLED=";
    while (!configuration.empty()) {
        std::string line(takeLine(configuration));
        std::erase_if(line, [](char each) { return each == ' ' || each == '"' || each == '\r'; });
        if (line.starts_with(kKey))
            return line.substr(kKey.size()) == "yes" ? Seen::Yes : Seen::No;
    }
    return Seen::No;
}

FirewallFacts probeFirewall(std::chrono::milliseconds limit, const std::filesystem::path& root)
{
    FirewallFacts facts;
    facts.ufw = probeUfw(root);
    probeRules(facts, limit);
    return facts;
}

} // namespace quillbox::diagnosis
