#include "platform/dnssd/processes/avahi_server_api.h"

#include "platform/dnssd/processes/avahi_records.h"
#include "platform/posix/shared_library.h"

#include <string_view>
#include <utility>

#include <avahi-common/error.h>

namespace quillbox::dnssd {

namespace {

template <class T> class ServerObject final : public AvahiObject {
public:
    using Free = void (*)(T*);

    ServerObject(const AvahiServerLibrary& theLibrary, AvahiServer& theServer,
                 AvahiAnswers& theAnswers, Free theFree)
        : library(theLibrary), server(theServer), answers(theAnswers), free(theFree)
    {
    }
    ServerObject(const ServerObject&) = delete;
    ServerObject& operator=(const ServerObject&) = delete;
    ~ServerObject() override
    {
        if (object != nullptr)
            free(object);
    }

    int lastError() const { return library.server_errno(&server); }

    const AvahiServerLibrary& library;
    AvahiServer& server;
    AvahiAnswers& answers;
    Free free;
    T* object = nullptr;
};

using ServiceBrowser = ServerObject<AvahiSServiceBrowser>;
using RecordBrowser = ServerObject<AvahiSRecordBrowser>;

class ServerGroup final : public AvahiGroup {
public:
    ServerGroup(const AvahiServerLibrary& theLibrary, AvahiServer& theServer,
                AvahiSEntryGroup* theGroup)
        : library(theLibrary), server(theServer), group(theGroup)
    {
    }
    ServerGroup(const ServerGroup&) = delete;
    ServerGroup& operator=(const ServerGroup&) = delete;
    ~ServerGroup() override { library.s_entry_group_free(group); }

    int addService(const Service& service) override
    {
        const TxtStrings txt(service.txt);
        return library.server_add_service_strlst(
            &server, group, service.interfaceIndex, AVAHI_PROTO_UNSPEC, AvahiPublishFlags{},
            service.name.c_str(), service.type.c_str(), orNull(service.domain),
            orNull(service.hostName), service.port, txt.get());
    }

    int addRecord(const RawRecord& record) override
    {
        AvahiRecord* avahiRecord = library.record_new_full(record.name.c_str(), AVAHI_DNS_CLASS_IN,
                                                           record.type, record.lifetime);
        if (avahiRecord == nullptr)
            return AVAHI_ERR_INVALID_RECORD;
        const int error =
            library.rdata_parse(avahiRecord, record.data.data(), record.data.size()) < 0
                ? AVAHI_ERR_INVALID_RDATA
                : library.server_add(&server, group, record.interfaceIndex, AVAHI_PROTO_UNSPEC,
                                     recordFlags(record), avahiRecord);
        library.record_unref(avahiRecord);
        return error;
    }

    int addAddress(const std::string& hostName, const HostAddress& address,
                   Probing probing) override
    {
        AvahiAddress avahiAddress = avahiAddressOf(address.address);
        return library.server_add_address(&server, group, address.interfaceIndex,
                                          AVAHI_PROTO_UNSPEC, addressFlags(probing),
                                          hostName.c_str(), &avahiAddress);
    }

    int commit() override { return library.s_entry_group_commit(group); }

private:
    const AvahiServerLibrary& library;
    AvahiServer& server;
    AvahiSEntryGroup* group;
};

void onService(AvahiSServiceBrowser* /*browser*/, AvahiIfIndex interfaceIndex,
               AvahiProtocol protocol, AvahiBrowserEvent event, const char* name, const char* type,
               const char* domain, AvahiLookupResultFlags /*flags*/, void* context)
{
    auto& object = *static_cast<ServiceBrowser*>(context);
    if (isChange(event, object.answers, object.lastError()))
        object.answers.onService(changeOf(event), sightingOf(interfaceIndex, protocol), name, type,
                                 domain);
}

void onRecord(AvahiSRecordBrowser* /*browser*/, AvahiIfIndex interfaceIndex, AvahiProtocol protocol,
              AvahiBrowserEvent event, AvahiRecord* record, AvahiLookupResultFlags /*flags*/,
              void* context)
{
    auto& object = *static_cast<RecordBrowser*>(context);
    if (!isChange(event, object.answers, object.lastError()) || record == nullptr)
        return;
    const Sighting sighting = sightingOf(interfaceIndex, protocol);
    switch (record->key->type) {
    case AVAHI_DNS_TYPE_SRV: {
        const auto& srv = record->data.srv;
        const std::string_view host = srv.name == nullptr ? "" : srv.name;
        if (!host.empty() && host != ".")
            object.answers.onLocation(changeOf(event), sighting, {std::string(host), srv.port});
        break;
    }
    case AVAHI_DNS_TYPE_A:
        object.answers.onAddress(changeOf(event), sighting,
                                 addressOf(Family::IPv4, &record->data.a.address));
        break;
    case AVAHI_DNS_TYPE_AAAA:
        object.answers.onAddress(changeOf(event), sighting,
                                 addressOf(Family::IPv6, &record->data.aaaa.address));
        break;
    default:
        break;
    }
}

void onGroupState(AvahiServer* /*server*/, AvahiSEntryGroup* /*group*/, AvahiEntryGroupState state,
                  void* context)
{
    static_cast<AvahiGroupWatcher*>(context)->onGroupState(state);
}

// Lookups pass no flags: with AVAHI_LOOKUP_USE_MULTICAST there are more ways in which a single
// packet can crash Avahi 0.8.
class ServerApi final : public AvahiApi {
public:
    ServerApi(const AvahiServerLibrary& theLibrary, AvahiServer& theServer)
        : library(theLibrary), server(theServer)
    {
    }

    std::unique_ptr<AvahiObject> browse(const std::string& type, AvahiAnswers& answers) override
    {
        auto browser = std::make_unique<ServiceBrowser>(library, server, answers,
                                                        library.s_service_browser_free);
        browser->object = library.s_service_browser_new(
            &server, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type.c_str(), nullptr, AvahiLookupFlags{},
            onService, browser.get());
        return browser->object == nullptr ? nullptr : std::move(browser);
    }

    std::unique_ptr<AvahiObject> lookUp(const std::string& name, Record record,
                                        AvahiAnswers& answers) override
    {
        AvahiKey* key = library.key_new(name.c_str(), AVAHI_DNS_CLASS_IN, recordTypeOf(record));
        if (key == nullptr)
            return nullptr;
        auto browser = std::make_unique<RecordBrowser>(library, server, answers,
                                                       library.s_record_browser_free);
        browser->object =
            library.s_record_browser_new(&server, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, key,
                                         AvahiLookupFlags{}, onRecord, browser.get());
        library.key_unref(key);
        return browser->object == nullptr ? nullptr : std::move(browser);
    }

    std::unique_ptr<AvahiGroup> makeGroup(AvahiGroupWatcher& watcher) override
    {
        AvahiSEntryGroup* group = library.s_entry_group_new(&server, onGroupState, &watcher);
        return group == nullptr ? nullptr : std::make_unique<ServerGroup>(library, server, group);
    }

    int lastError() override { return library.server_errno(&server); }

    std::string domainName() override { return library.server_get_domain_name(&server); }

private:
    const AvahiServerLibrary& library;
    AvahiServer& server;
};

} // namespace

std::optional<AvahiServerLibrary> loadAvahiServerLibrary()
{
    SharedLibrary loaded("libavahi-core.so.7");
    AvahiServerLibrary library;
    loaded.find(library.set_log_function, "avahi_set_log_function");
    loaded.find(library.server_config_init, "avahi_server_config_init");
    loaded.find(library.server_config_free, "avahi_server_config_free");
    loaded.find(library.server_new, "avahi_server_new");
    loaded.find(library.server_free, "avahi_server_free");
    loaded.find(library.server_errno, "avahi_server_errno");
    loaded.find(library.server_get_host_name_fqdn, "avahi_server_get_host_name_fqdn");
    loaded.find(library.server_get_domain_name, "avahi_server_get_domain_name");
    loaded.find(library.key_new, "avahi_key_new");
    loaded.find(library.key_unref, "avahi_key_unref");
    loaded.find(library.s_service_browser_new, "avahi_s_service_browser_new");
    loaded.find(library.s_service_browser_free, "avahi_s_service_browser_free");
    loaded.find(library.s_record_browser_new, "avahi_s_record_browser_new");
    loaded.find(library.s_record_browser_free, "avahi_s_record_browser_free");
    loaded.find(library.s_entry_group_new, "avahi_s_entry_group_new");
    loaded.find(library.s_entry_group_free, "avahi_s_entry_group_free");
    loaded.find(library.s_entry_group_commit, "avahi_s_entry_group_commit");
    loaded.find(library.record_new_full, "avahi_record_new_full");
    loaded.find(library.record_unref, "avahi_record_unref");
    loaded.find(library.rdata_parse, "avahi_rdata_parse");
    loaded.find(library.server_add, "avahi_server_add");
    loaded.find(library.server_add_address, "avahi_server_add_address");
    loaded.find(library.server_add_service_strlst, "avahi_server_add_service_strlst");
    if (!loaded.isComplete())
        return std::nullopt;
    return library;
}

std::unique_ptr<AvahiApi> makeAvahiServerApi(const AvahiServerLibrary& library, AvahiServer& server)
{
    return std::make_unique<ServerApi>(library, server);
}

} // namespace quillbox::dnssd
