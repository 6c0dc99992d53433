#include "platform/diagnosis/name_probe.h"

#include "platform/diagnosis/small_file.h"
#include "platform/diagnosis/words.h"

#include <algorithm>
#include <memory>
#include <vector>

#include <netdb.h>
#include <sys/socket.h>

namespace quillbox::diagnosis {

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmedLine(std::string_view line)
{
    line = line.substr(0, line.find('#'));
    const auto first = line.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return {};
    return line.substr(first, line.find_last_not_of(kBlanks) + 1 - first);
}

bool isMulticastModule(std::string_view word)
{
    return word.starts_with("mdns");
}

} // namespace

std::string hostsLineIn(std::string_view configuration)
{
    constexpr std::string_view kKey = "hosts:";
    while (!configuration.empty()) {
        const auto end = std::min(configuration.find('\n'), configuration.size());
        const auto line = trimmedLine(configuration.substr(0, end));
        configuration.remove_prefix(std::min(end + 1, configuration.size()));
        if (line.starts_with(kKey))
            return std::string(trimmedLine(line.substr(kKey.size())));
    }
    return {};
}

bool asksMulticastDns(std::string_view hostsLine)
{
    const auto words = wordsOf(hostsLine);
    return std::any_of(words.begin(), words.end(), isMulticastModule);
}

bool isLocalOnly(std::string_view hostsLine)
{
    const auto words = wordsOf(hostsLine);
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (isMulticastModule(words[i]))
            return i + 1 == words.size()
                   || words[i + 1].find("NOTFOUND=return") != std::string_view::npos;
        // These modules know only the names of this computer and send no queries.
        if (words[i] != "files" && words[i] != "myhostname" && words[i] != "mymachines"
            && !words[i].starts_with('['))
            return false;
    }
    return false;
}

NameFacts readNameService()
{
    NameFacts facts;
    facts.hostsLine = hostsLineIn(readSmallFile("/etc/nsswitch.conf").value_or(""));
    facts.asksMulticastDns = asksMulticastDns(facts.hostsLine);
    return facts;
}

Seen isNameFound(const std::string& name)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* first = nullptr;
    if (::getaddrinfo(name.c_str(), nullptr, &hints, &first) != 0)
        return Seen::No;
    ::freeaddrinfo(first);
    return Seen::Yes;
}

} // namespace quillbox::diagnosis
