#include "platform/dnssd/operations/own_services.h"

#include "platform/dnssd/operations/names.h"
#include "platform/values/text.h"

#include <algorithm>
#include <utility>

namespace quillbox::dnssd {

OwnServices::Lookup::Lookup(OwnServices& allServices, std::string serviceName,
                            std::string serviceType, Report updates)
    : services(allServices),
      name(std::move(serviceName)),
      type(std::move(serviceType)),
      report(std::move(updates))
{
    services.lookups.push_back(this);
    tell();
}

OwnServices::Lookup::~Lookup()
{
    std::erase(services.lookups, this);
}

void OwnServices::Lookup::tell()
{
    report.deliver({services.find(name, type)});
}

OwnServices::Entry::Entry(OwnServices& allServices, std::string serviceName,
                          std::string serviceType)
    : services(allServices), name(std::move(serviceName)), type(std::move(serviceType))
{
    services.entries.push_back(this);
}

OwnServices::Entry::~Entry()
{
    std::erase(services.entries, this);
    services.changed();
}

void OwnServices::Entry::set(DnsSd::OwnService current)
{
    service = std::move(current);
    services.changed();
}

/// Of two entries with the same name returns the newer: the older is about to be destroyed.
std::optional<DnsSd::OwnService> OwnServices::find(const std::string& name,
                                                   const std::string& type) const
{
    const auto found =
        std::find_if(entries.rbegin(), entries.rend(), [&name, &type](const Entry* entry) {
            return entry->service && canonicallyEqual(entry->name, name)
                   && isSameName(entry->type, type);
        });
    return found != entries.rend() ? (*found)->service : std::nullopt;
}

void OwnServices::changed() const
{
    for (Lookup* lookup : lookups)
        lookup->tell();
}

} // namespace quillbox::dnssd
