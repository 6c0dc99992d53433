#include "platform/dnssd/processes/avahi_client_api.h"

#include "platform/dnssd/processes/avahi_records.h"
#include "platform/posix/shared_library.h"

#include <utility>

namespace quillbox::dnssd {

namespace {

template <class T> class ClientObject final : public AvahiObject {
public:
    using Free = int (*)(T*);

    ClientObject(const AvahiClientLibrary& theLibrary, AvahiClient& theClient,
                 AvahiAnswers& theAnswers, Free theFree)
        : library(theLibrary), client(theClient), answers(theAnswers), free(theFree)
    {
    }
    ClientObject(const ClientObject&) = delete;
    ClientObject& operator=(const ClientObject&) = delete;
    ~ClientObject() override
    {
        if (object != nullptr)
            free(object);
    }

    int lastError() const { return library.client_errno(&client); }

    const AvahiClientLibrary& library;
    AvahiClient& client;
    AvahiAnswers& answers;
    Free free;
    T* object = nullptr;
};

using ServiceBrowser = ClientObject<AvahiServiceBrowser>;
using RecordBrowser = ClientObject<AvahiRecordBrowser>;

class ClientGroup final : public AvahiGroup {
public:
    ClientGroup(const AvahiClientLibrary& theLibrary, AvahiEntryGroup* theGroup)
        : library(theLibrary), group(theGroup)
    {
    }
    ClientGroup(const ClientGroup&) = delete;
    ClientGroup& operator=(const ClientGroup&) = delete;
    ~ClientGroup() override { library.entry_group_free(group); }

    int addService(const Service& service) override
    {
        const TxtStrings txt(service.txt);
        return library.entry_group_add_service_strlst(
            group, service.interfaceIndex, AVAHI_PROTO_UNSPEC, AvahiPublishFlags{},
            service.name.c_str(), service.type.c_str(), orNull(service.domain),
            orNull(service.hostName), service.port, txt.get());
    }

    int addRecord(const RawRecord& record) override
    {
        return library.entry_group_add_record(group, record.interfaceIndex, AVAHI_PROTO_UNSPEC,
                                              recordFlags(record), record.name.c_str(),
                                              AVAHI_DNS_CLASS_IN, record.type, record.lifetime,
                                              record.data.data(), record.data.size());
    }

    int addAddress(const std::string& hostName, const HostAddress& address,
                   Probing probing) override
    {
        const AvahiAddress avahiAddress = avahiAddressOf(address.address);
        return library.entry_group_add_address(group, address.interfaceIndex, AVAHI_PROTO_UNSPEC,
                                               addressFlags(probing), hostName.c_str(),
                                               &avahiAddress);
    }

    int commit() override { return library.entry_group_commit(group); }

private:
    const AvahiClientLibrary& library;
    AvahiEntryGroup* group;
};

void onService(AvahiServiceBrowser* /*browser*/, AvahiIfIndex interfaceIndex,
               AvahiProtocol protocol, AvahiBrowserEvent event, const char* name, const char* type,
               const char* domain, AvahiLookupResultFlags /*flags*/, void* context)
{
    auto& browser = *static_cast<ServiceBrowser*>(context);
    if (isChange(event, browser.answers, browser.lastError()))
        browser.answers.onService(changeOf(event), sightingOf(interfaceIndex, protocol), name, type,
                                  domain);
}

void onRecord(AvahiRecordBrowser* /*browser*/, AvahiIfIndex interfaceIndex, AvahiProtocol protocol,
              AvahiBrowserEvent event, const char* /*name*/, std::uint16_t /*recordClass*/,
              std::uint16_t type, const void* data, std::size_t size,
              AvahiLookupResultFlags /*flags*/, void* context)
{
    auto& browser = *static_cast<RecordBrowser*>(context);
    AvahiAnswers& answers = browser.answers;
    if (!isChange(event, answers, browser.lastError()))
        return;
    const Sighting sighting = sightingOf(interfaceIndex, protocol);
    if (type == AVAHI_DNS_TYPE_SRV) {
        if (const auto location =
                decodeServiceLocation({static_cast<const std::uint8_t*>(data), size}))
            answers.onLocation(changeOf(event), sighting, *location);
    } else if (type == AVAHI_DNS_TYPE_A && size == 4) {
        answers.onAddress(changeOf(event), sighting, addressOf(Family::IPv4, data));
    } else if (type == AVAHI_DNS_TYPE_AAAA && size == 16) {
        answers.onAddress(changeOf(event), sighting, addressOf(Family::IPv6, data));
    }
}

void onGroupState(AvahiEntryGroup* /*group*/, AvahiEntryGroupState state, void* context)
{
    static_cast<AvahiGroupWatcher*>(context)->onGroupState(state);
}

// Lookups pass no flags: with AVAHI_LOOKUP_USE_MULTICAST there are more ways in which a single
// packet can crash Avahi 0.8.
class ClientApi final : public AvahiApi {
public:
    ClientApi(const AvahiClientLibrary& theLibrary, AvahiClient& theClient)
        : library(theLibrary), client(theClient)
    {
    }

    std::unique_ptr<AvahiObject> browse(const std::string& type, AvahiAnswers& answers) override
    {
        auto browser = std::make_unique<ServiceBrowser>(library, client, answers,
                                                        library.service_browser_free);
        browser->object =
            library.service_browser_new(&client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type.c_str(),
                                        nullptr, AvahiLookupFlags{}, onService, browser.get());
        return browser->object == nullptr ? nullptr : std::move(browser);
    }

    std::unique_ptr<AvahiObject> lookUp(const std::string& name, Record record,
                                        AvahiAnswers& answers) override
    {
        auto browser =
            std::make_unique<RecordBrowser>(library, client, answers, library.record_browser_free);
        browser->object = library.record_browser_new(
            &client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, name.c_str(), AVAHI_DNS_CLASS_IN,
            recordTypeOf(record), AvahiLookupFlags{}, onRecord, browser.get());
        return browser->object == nullptr ? nullptr : std::move(browser);
    }

    std::unique_ptr<AvahiGroup> makeGroup(AvahiGroupWatcher& watcher) override
    {
        AvahiEntryGroup* group = library.entry_group_new(&client, onGroupState, &watcher);
        return group == nullptr ? nullptr : std::make_unique<ClientGroup>(library, group);
    }

    int lastError() override { return library.client_errno(&client); }

    std::string domainName() override
    {
        const char* name = library.client_get_domain_name(&client);
        return name == nullptr ? "local" : name;
    }

private:
    const AvahiClientLibrary& library;
    AvahiClient& client;
};

} // namespace

std::optional<AvahiClientLibrary> loadAvahiClientLibrary()
{
    SharedLibrary loaded("libavahi-client.so.3");
    AvahiClientLibrary library;
    loaded.find(library.client_new, "avahi_client_new");
    loaded.find(library.client_free, "avahi_client_free");
    loaded.find(library.client_errno, "avahi_client_errno");
    loaded.find(library.client_get_host_name_fqdn, "avahi_client_get_host_name_fqdn");
    loaded.find(library.client_get_domain_name, "avahi_client_get_domain_name");
    loaded.find(library.service_browser_new, "avahi_service_browser_new");
    loaded.find(library.service_browser_free, "avahi_service_browser_free");
    loaded.find(library.record_browser_new, "avahi_record_browser_new");
    loaded.find(library.record_browser_free, "avahi_record_browser_free");
    loaded.find(library.entry_group_new, "avahi_entry_group_new");
    loaded.find(library.entry_group_free, "avahi_entry_group_free");
    loaded.find(library.entry_group_commit, "avahi_entry_group_commit");
    loaded.find(library.entry_group_add_address, "avahi_entry_group_add_address");
    loaded.find(library.entry_group_add_record, "avahi_entry_group_add_record");
    loaded.find(library.entry_group_add_service_strlst, "avahi_entry_group_add_service_strlst");
    if (!loaded.isComplete())
        return std::nullopt;
    return library;
}

std::unique_ptr<AvahiApi> makeAvahiClientApi(const AvahiClientLibrary& library, AvahiClient& client)
{
    return std::make_unique<ClientApi>(library, client);
}

} // namespace quillbox::dnssd
