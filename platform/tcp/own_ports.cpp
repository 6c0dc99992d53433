#include "platform/tcp/own_ports.h"

#include "platform/tcp/socket_calls.h"
#include "platform/values/text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

namespace quillbox {

namespace {

/// How many ports of a service are tried. With 250 phones, one port in 16 is in use.
constexpr std::size_t kTries = 8;

constexpr PortRange kDefaultEphemeral{.first = 32768, .last = 60999};

} // namespace

std::optional<ListeningPort> OwnPorts::open(std::uint16_t port, bool allowsReuse,
                                            std::error_code& error, std::string service)
{
    FileDescriptor socket(openListeningSocket(port, allowsReuse, error, reach_));
    if (error)
        return std::nullopt;
    const auto number = localPort(socket.get());
    return ListeningPort{
        .entry = add(number, std::move(service)), .socket = std::move(socket), .number = number};
}

std::optional<ListeningPort> OwnPorts::openForService(const std::string& service, bool allowsReuse,
                                                      std::uint16_t instead)
{
    for (const auto port : servicePorts(service, ephemeralPorts())) {
        if (port == instead)
            break;
        std::error_code error;
        if (auto opened = open(port, allowsReuse, error, service))
            return opened;
    }
    return std::nullopt;
}

std::shared_ptr<void> OwnPorts::add(std::uint16_t port, std::string service)
{
    const std::lock_guard lock(mutex_);
    const auto entry = ports_.insert(ports_.end(), {port, std::move(service), {}});
    return {this, [this, entry](void*) { remove(entry); }};
}

bool OwnPorts::contains(std::uint16_t port) const
{
    const std::lock_guard lock(mutex_);
    return std::ranges::find(ports_, port, &Entry::port) != ports_.end();
}

bool OwnPorts::afterRemoval(const std::string& service, std::function<void()> removed)
{
    const std::lock_guard lock(mutex_);
    const auto position = std::ranges::find_if(ports_, [&service](const Entry& entry) {
        return canonicallyEqual(entry.service, service);
    });
    if (position == ports_.end())
        return false;
    position->removed.push_back(std::move(removed));
    return true;
}

void OwnPorts::remove(std::list<Entry>::iterator entry)
{
    std::list<Entry> removed;
    {
        const std::lock_guard lock(mutex_);
        removed.splice(removed.end(), ports_, entry);
    }
    for (const auto& each : removed.front().removed)
        each();
}

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
    constexpr std::uint64_t kCount = kServicePorts.last - kServicePorts.first + 1;
    const std::uint64_t start = stableHash(normalized(name)) % kCount;
    std::vector<std::uint16_t> steady;
    std::vector<std::uint16_t> shared;
    for (std::uint64_t index = 0; index < kCount; ++index) {
        const auto port =
            static_cast<std::uint16_t>(kServicePorts.first + (start + index) % kCount);
        (ephemeral.contains(port) ? shared : steady).push_back(port);
    }
    auto& choice = steady.empty() ? shared : steady;
    choice.resize(std::min(kTries, choice.size()));
    return choice;
}

} // namespace quillbox
