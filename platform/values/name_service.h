#pragma once

#include <string>
#include <string_view>

namespace quillbox {

/// How the system's name service, which programs use through getaddrinfo(3), looks up host names
/// that end in ".local". A value.
class NameService final {
public:
    /// Where names are resolved by multicast DNS.
    enum class LocalNames {
        Unknown,
        Nowhere,
        Avahi,    ///< by libnss-mdns, which asks avahi-daemon
        Resolved, ///< by systemd-resolved, if it is configured for multicast DNS
    };

    /// Whose configuration is not known.
    NameService() = default;

    /// As configured by the text of an nsswitch.conf(5).
    explicit NameService(std::string_view configuration);

    /// The first of the modules that use multicast DNS, if the lookup gets that far.
    LocalNames localNames() const { return names; }

    /// Whether no DNS server is asked for a name, neither before nor after that module. Some module
    /// after it may be, if the program that it asks is not running.
    bool isLocalOnly() const { return isOnly; }

    bool operator==(const NameService&) const = default;

private:
    LocalNames names = LocalNames::Unknown;
    bool isOnly = false;
};

} // namespace quillbox
