#pragma once

#include "platform/dns_sd.h"
#include "platform/dnssd/engine/messages.h"
#include "platform/dnssd/operations/report.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quillbox::dnssd {

struct Center;

/// The services that this program publishes, by their requested names: a service that was renamed
/// after a conflict is still found. Belongs to the center's queue.
class OwnServices final {
public:
    /// A lookup that is active for as long as it exists. Reports immediately, and at each change.
    class Lookup final {
    public:
        using Report = dnssd::Report<std::optional<DnsSd::OwnService>>;

        Lookup(Center& center, Report updates, std::string serviceName, std::string serviceType);
        ~Lookup();
        Lookup(const Lookup&) = delete;
        Lookup& operator=(const Lookup&) = delete;

        void start() { tell(); }
        void tell();

    private:
        OwnServices& services;
        Report report;
        const std::string name;
        const std::string type;
    };

    /// A service that this program registers, for as long as the entry exists, on a host of its
    /// own: a host name and a loopback address that no other service has, because file browsers
    /// distinguish servers by host, not by port.
    class Entry final {
    public:
        /// Followed by `claimHost`.
        Entry(OwnServices& allServices, const ServiceRegistration& registration,
              std::uint16_t port);
        ~Entry();
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

        /// Claims a host in place of the one before: the same one for the same service name
        /// whenever possible. `number` starts at 1 and is incremented by the caller at each
        /// conflict of the host name; this function increments it further while another entry has
        /// the name. `computer` is like "my-pc.local".
        void claimHost(const std::string& computer, unsigned& number);

        void setPublished(bool isPublished);

        const std::string& hostName() const { return service.hostName; }
        const Address& loopback() const { return ownLoopback; }

    private:
        friend class OwnServices;

        OwnServices& services;
        const std::string name;
        const std::string type;
        DnsSd::OwnService service;
        Address ownLoopback; ///< in 127.0.0.0/8
    };

    OwnServices() = default;
    OwnServices(const OwnServices&) = delete;
    OwnServices& operator=(const OwnServices&) = delete;

    /// How many services are published, or about to be.
    std::size_t count() const { return entries.size(); }

private:
    std::optional<DnsSd::OwnService> find(const std::string& name, const std::string& type) const;
    void changed() const;

    std::vector<const Entry*> entries; ///< oldest first
    std::vector<Lookup*> lookups;
};

} // namespace quillbox::dnssd
