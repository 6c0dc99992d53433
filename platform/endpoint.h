#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace quillbox {

/// A host as a user would type it (a numeric address, with a scope if need be, or a name) and a
/// port in host byte order.
struct HostEndpoint {
    std::string host;
    std::uint16_t port = 0;

    bool operator==(const HostEndpoint&) const = default;
};

/// A DNS-SD service instance (RFC 6763, section 4.1). `name` is the instance label, UTF-8 and not
/// escaped; `type` is like "_smb._tcp" and `domain` like "local", both without a final dot. An
/// `interface` restricts the service to one network interface; a browsed service has none, so that
/// a second network card does not make a second endpoint.
struct ServiceEndpoint {
    std::string name;
    std::string type;
    std::string domain;
    std::optional<std::string> interface = std::nullopt;

    bool operator==(const ServiceEndpoint&) const = default;
};

/// Where a connection can lead to. A plain value; two endpoints are equal when their parts are,
/// byte by byte.
class Endpoint {
public:
    Endpoint(HostEndpoint host);
    Endpoint(ServiceEndpoint service);

    /// The service, or none when this is a host and a port.
    const ServiceEndpoint* service() const;

    /// The host and port, or none when this is a service.
    const HostEndpoint* host() const;

    /// A printed form that is the same for equal endpoints and differs between different ones. It
    /// is printable ASCII or UTF-8 on one line: bytes that would be ambiguous or unprintable are
    /// escaped as in a DNS master file (RFC 1035, section 5.1).
    std::string description() const;

    bool operator==(const Endpoint&) const = default;

private:
    std::variant<HostEndpoint, ServiceEndpoint> value_;
};

} // namespace quillbox
