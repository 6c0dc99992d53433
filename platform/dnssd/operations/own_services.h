#pragma once

#include "platform/dns_sd.h"
#include "platform/dnssd/operations/report.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace quillbox::dnssd {

/// The services that this program publishes, by their requested names: a service that was renamed
/// after a conflict is still found. Belongs to the center's queue.
class OwnServices final {
public:
    /// A lookup that is active for as long as it exists. Reports immediately, and at each change.
    class Lookup final {
    public:
        using Report = dnssd::Report<DnsSd::OwnServiceUpdate>;

        Lookup(OwnServices& allServices, std::string serviceName, std::string serviceType,
               Report updates);
        ~Lookup();
        Lookup(const Lookup&) = delete;
        Lookup& operator=(const Lookup&) = delete;

        void tell();

    private:
        OwnServices& services;
        const std::string name;
        const std::string type;
        Report report;
    };

    /// A service that this program registers, for as long as the entry exists.
    class Entry final {
    public:
        Entry(OwnServices& allServices, std::string serviceName, std::string serviceType);
        ~Entry();
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

        void set(DnsSd::OwnService current);

    private:
        friend class OwnServices;

        OwnServices& services;
        const std::string name;
        const std::string type;
        std::optional<DnsSd::OwnService> service; ///< empty until `set`
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
