#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <variant>

namespace quillbox {

/// A host as a user types it (a name or a numeric address, with a scope if needed) and a port in
/// host byte order.
struct HostEndpoint {
    std::string host;
    std::uint16_t port = 0;

    auto operator<=>(const HostEndpoint&) const = default;
};

/// A DNS-SD service instance (RFC 6763, section 4.1). `name` is the instance label, UTF-8 and not
/// escaped; `type` is like "_smb._tcp" and `domain` like "local", both without a trailing dot.
struct ServiceEndpoint {
    std::string name;
    std::string type;
    std::string domain;

    auto operator<=>(const ServiceEndpoint&) const = default;
};

/// The target of a connection. A value type; endpoints are equal if all their parts are equal byte
/// by byte.
class Endpoint {
public:
    Endpoint(HostEndpoint host);
    Endpoint(ServiceEndpoint service);

    /// The service, or null if this is a host and port.
    const ServiceEndpoint* service() const;

    /// The host and port, or null if this is a service.
    const HostEndpoint* host() const;

    /// A unique printed form: equal for equal endpoints only. It is printable ASCII or UTF-8 on one
    /// line: bytes that would be ambiguous or unprintable are escaped as in a DNS master file (RFC
    /// 1035, section 5.1).
    std::string description() const;

    auto operator<=>(const Endpoint&) const = default;

private:
    std::variant<HostEndpoint, ServiceEndpoint> value_;
};

} // namespace quillbox
