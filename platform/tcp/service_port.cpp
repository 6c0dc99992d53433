#include "platform/tcp/service_port.h"

#include "platform/text.h"

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <sstream>

namespace quillbox {

namespace {

/// How many ports are tried. With 250 phones, one port in 16 is in use.
constexpr std::size_t kTries = 8;

constexpr PortRange kDefaultEphemeral{.first = 32768, .last = 60999};

} // namespace

PortRange ephemeralPorts()
{
    std::ifstream file("/proc/sys/net/ipv4/ip_local_port_range");
    return parsePortRange({std::istreambuf_iterator<char>(file), {}});
}

PortRange parsePortRange(const std::string& text)
{
    std::istringstream numbers(text);
    PortRange range;
    if (numbers >> range.first >> range.last && range.first <= range.last)
        return range;
    return kDefaultEphemeral;
}

std::vector<std::uint16_t> servicePorts(std::string_view name, PortRange ephemeral)
{
    std::vector<std::uint16_t> steady;
    std::vector<std::uint16_t> shared;
    for (auto port = kServicePorts.first; port <= kServicePorts.last; ++port)
        (ephemeral.contains(port) ? shared : steady).push_back(port);
    const auto& choice = steady.empty() ? shared : steady;
    const auto start = static_cast<std::size_t>(stableHash(normalized(name)) % choice.size());
    std::vector<std::uint16_t> result;
    for (std::size_t index = 0; index < std::min(kTries, choice.size()); ++index)
        result.push_back(choice[(start + index) % choice.size()]);
    return result;
}

} // namespace quillbox
