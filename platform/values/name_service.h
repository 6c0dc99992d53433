#pragma once

#include <string>
#include <string_view>

namespace quillbox {

/// How the system's name service, which programs use through getaddrinfo(3), looks up host names
/// that end in ".local". A value.
class NameService final {
public:
    /// Who resolves names by multicast DNS.
    enum class LocalNames {
        Unknown,
        Nowhere,
        Avahi, ///< by libnss-mdns, which asks avahi-daemon
        /// By systemd-resolved only. Many versions ignore what other programs of this computer
        /// announce (https://github.com/systemd/systemd/issues/40636); all know the computer's own
        /// name without asking.
        Resolved,
    };

    /// Whose configuration is not known.
    NameService() = default;

    /// As configured by the text of an nsswitch.conf(5).
    explicit NameService(std::string_view configuration);

    /// As far as the lookup of an unknown name gets.
    LocalNames localNames() const { return names; }

    /// Whether avahi-daemon is asked and no DNS server, neither before nor after it. Some module
    /// after it may be, if it is not running.
    bool isLocalOnly() const { return isOnly; }

    bool operator==(const NameService&) const = default;

private:
    LocalNames names = LocalNames::Unknown;
    bool isOnly = false;
};

} // namespace quillbox
