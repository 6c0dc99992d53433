#include "platform/dnssd/avahi/avahi_service_location.h"

#include <array>
#include <cstddef>
#include <string>

#include <avahi-common/domain.h>

namespace quillbox::dnssd {

namespace {

constexpr std::size_t kFixedLength = 6; // priority, weight, port
constexpr std::size_t kMaximumLabelLength = 63;
constexpr std::size_t kMaximumNameLength = 255; // RFC 1035, section 2.3.4

/// Appends a label in presentation format; false when Avahi cannot escape it.
bool appendLabel(std::string& name, std::span<const std::uint8_t> label)
{
    // A byte takes four characters at most: "\255".
    std::array<char, kMaximumLabelLength * 4 + 1> text{};
    char* cursor = text.data();
    std::size_t room = text.size();
    const auto* bytes = reinterpret_cast<const char*>(label.data());
    if (avahi_escape_label(bytes, label.size(), &cursor, &room) == nullptr)
        return false;
    if (!name.empty())
        name += '.';
    name += text.data();
    return true;
}

} // namespace

std::optional<HostEndpoint> decodeServiceLocation(std::span<const std::uint8_t> recordData)
{
    if (recordData.size() <= kFixedLength || recordData.size() > kFixedLength + kMaximumNameLength)
        return std::nullopt;

    HostEndpoint location;
    location.port = static_cast<std::uint16_t>(recordData[4] << 8 | recordData[5]);

    auto rest = recordData.subspan(kFixedLength);
    while (!rest.empty() && rest.front() != 0) {
        const std::size_t length = rest.front(); // above 63: a compression pointer
        if (length > kMaximumLabelLength || length >= rest.size())
            return std::nullopt;
        if (!appendLabel(location.host, rest.subspan(1, length)))
            return std::nullopt;
        rest = rest.subspan(1 + length);
    }
    const bool isEndedByRoot = rest.size() == 1;
    if (!isEndedByRoot || location.host.empty())
        return std::nullopt;
    return location;
}

} // namespace quillbox::dnssd
