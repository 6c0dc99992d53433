#include "platform/dnssd/avahi/avahi_api.h"
#include "platform/dnssd/processes/avahi_records.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include <avahi-common/error.h>
#include <avahi-core/core.h>
#include <avahi-core/lookup.h>
#include <avahi-core/publish.h>
#include <avahi-core/rr.h>

namespace quillbox::dnssd {

namespace {

using ServiceBrowser = AvahiBrowser<AvahiSServiceBrowser, &avahi_s_service_browser_free>;
using RecordBrowser = AvahiBrowser<AvahiSRecordBrowser, &avahi_s_record_browser_free>;

/// More than the data of an SRV record, which has the longest.
constexpr std::size_t kMaximumData = 512;

class ServerGroup final : public AvahiGroup {
public:
    ServerGroup(AvahiServer& theServer, AvahiSEntryGroup* theGroup)
        : server(theServer), group(theGroup)
    {
    }
    ServerGroup(const ServerGroup&) = delete;
    ServerGroup& operator=(const ServerGroup&) = delete;
    ~ServerGroup() override { avahi_s_entry_group_free(group); }

    int addRecord(const RawRecord& record, Probing probing) override
    {
        AvahiRecord* avahiRecord = avahi_record_new_full(record.name.c_str(), AVAHI_DNS_CLASS_IN,
                                                         record.type, record.lifetime);
        if (avahiRecord == nullptr)
            return AVAHI_ERR_INVALID_RECORD;
        const int error =
            avahi_rdata_parse(avahiRecord, record.data.data(), record.data.size()) < 0
                ? AVAHI_ERR_INVALID_RDATA
                : avahi_server_add(&server, group, record.interfaceIndex, AVAHI_PROTO_UNSPEC,
                                   recordFlags(record, probing), avahiRecord);
        avahi_record_unref(avahiRecord);
        return error;
    }

    int addAddress(const std::string& hostName, const HostAddress& address,
                   Probing probing) override
    {
        AvahiAddress avahiAddress = avahiAddressOf(address.address);
        return avahi_server_add_address(&server, group, address.interfaceIndex, AVAHI_PROTO_UNSPEC,
                                        withProbing(probing, AVAHI_PUBLISH_NO_REVERSE),
                                        hostName.c_str(), &avahiAddress);
    }

    int commit() override { return avahi_s_entry_group_commit(group); }

private:
    AvahiServer& server;
    AvahiSEntryGroup* group;
};

void onRecord(AvahiSRecordBrowser* /*browser*/, AvahiIfIndex interfaceIndex, AvahiProtocol protocol,
              AvahiBrowserEvent event, AvahiRecord* record, AvahiLookupResultFlags /*flags*/,
              void* context)
{
    auto& browser = *static_cast<RecordBrowser*>(context);
    const auto change = browser.changeIn(event);
    if (!change)
        return;
    std::array<std::uint8_t, kMaximumData> data;
    const std::size_t size = avahi_rdata_serialize(record, data.data(), data.size());
    if (size <= data.size())
        tellRecord(browser.answers, *change, sightingOf(interfaceIndex, protocol),
                   record->key->type, std::span(data).first(size));
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
    explicit ServerApi(AvahiServer& theServer) : server(theServer) {}

    std::unique_ptr<AvahiObject> browse(const std::string& type, AvahiAnswers answers) override
    {
        auto browser = std::make_unique<ServiceBrowser>(*this, answers);
        browser->object = avahi_s_service_browser_new(&server, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                                      type.c_str(), nullptr, AvahiLookupFlags{},
                                                      &ServiceBrowser::onService, browser.get());
        return browser->object == nullptr ? nullptr : std::move(browser);
    }

    std::unique_ptr<AvahiObject> lookUp(const std::string& name, Record record,
                                        AvahiAnswers answers) override
    {
        AvahiKey* key = avahi_key_new(name.c_str(), AVAHI_DNS_CLASS_IN, recordTypeOf(record));
        if (key == nullptr)
            return nullptr;
        auto browser = std::make_unique<RecordBrowser>(*this, answers);
        browser->object =
            avahi_s_record_browser_new(&server, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, key,
                                       AvahiLookupFlags{}, onRecord, browser.get());
        avahi_key_unref(key);
        return browser->object == nullptr ? nullptr : std::move(browser);
    }

    std::unique_ptr<AvahiGroup> makeGroup(AvahiGroupWatcher& watcher) override
    {
        AvahiSEntryGroup* group = avahi_s_entry_group_new(&server, onGroupState, &watcher);
        return group == nullptr ? nullptr : std::make_unique<ServerGroup>(server, group);
    }

    int lastError() override { return avahi_server_errno(&server); }

    std::string domainName() override { return avahi_server_get_domain_name(&server); }

private:
    AvahiServer& server;
};

} // namespace

std::unique_ptr<AvahiApi> makeAvahiServerApi(AvahiServer& server)
{
    return std::make_unique<ServerApi>(server);
}

} // namespace quillbox::dnssd
