#include "platform/dnssd/avahi/avahi_api.h"
#include "platform/dnssd/processes/avahi_records.h"

#include <utility>

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>

namespace quillbox::dnssd {

namespace {

using ServiceBrowser = AvahiBrowser<AvahiServiceBrowser, &avahi_service_browser_free>;
using RecordBrowser = AvahiBrowser<AvahiRecordBrowser, &avahi_record_browser_free>;

class ClientGroup final : public AvahiGroup {
public:
    explicit ClientGroup(AvahiEntryGroup* theGroup) : group(theGroup) {}
    ClientGroup(const ClientGroup&) = delete;
    ClientGroup& operator=(const ClientGroup&) = delete;
    ~ClientGroup() override { avahi_entry_group_free(group); }

    int addRecord(const RawRecord& record, Probing probing) override
    {
        return avahi_entry_group_add_record(group, record.interfaceIndex, AVAHI_PROTO_UNSPEC,
                                            recordFlags(record, probing), record.name.c_str(),
                                            AVAHI_DNS_CLASS_IN, record.type, record.lifetime,
                                            record.data.data(), record.data.size());
    }

    int addAddress(const std::string& hostName, const HostAddress& address,
                   Probing probing) override
    {
        const AvahiAddress avahiAddress = avahiAddressOf(address.address);
        return avahi_entry_group_add_address(group, address.interfaceIndex, AVAHI_PROTO_UNSPEC,
                                             withProbing(probing, AVAHI_PUBLISH_NO_REVERSE),
                                             hostName.c_str(), &avahiAddress);
    }

    int commit() override { return avahi_entry_group_commit(group); }

private:
    AvahiEntryGroup* group;
};

void onRecord(AvahiRecordBrowser* /*browser*/, AvahiIfIndex interfaceIndex, AvahiProtocol protocol,
              AvahiBrowserEvent event, const char* /*name*/, std::uint16_t /*recordClass*/,
              std::uint16_t type, const void* data, std::size_t size,
              AvahiLookupResultFlags /*flags*/, void* context)
{
    auto& browser = *static_cast<RecordBrowser*>(context);
    if (const auto change = browser.changeIn(event))
        tellRecord(browser.answers, *change, sightingOf(interfaceIndex, protocol), type,
                   {static_cast<const std::uint8_t*>(data), size});
}

void onGroupState(AvahiEntryGroup* /*group*/, AvahiEntryGroupState state, void* context)
{
    static_cast<AvahiGroupWatcher*>(context)->onGroupState(state);
}

// Lookups pass no flags: with AVAHI_LOOKUP_USE_MULTICAST there are more ways in which a single
// packet can crash Avahi 0.8.
class ClientApi final : public AvahiApi {
public:
    explicit ClientApi(AvahiClient& theClient) : client(theClient) {}

    std::unique_ptr<AvahiObject> browse(const std::string& type, AvahiAnswers answers) override
    {
        auto browser = std::make_unique<ServiceBrowser>(*this, answers);
        browser->object = avahi_service_browser_new(&client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                                    type.c_str(), nullptr, AvahiLookupFlags{},
                                                    &ServiceBrowser::onService, browser.get());
        return browser->object == nullptr ? nullptr : std::move(browser);
    }

    std::unique_ptr<AvahiObject> lookUp(const std::string& name, Record record,
                                        AvahiAnswers answers) override
    {
        auto browser = std::make_unique<RecordBrowser>(*this, answers);
        browser->object = avahi_record_browser_new(
            &client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, name.c_str(), AVAHI_DNS_CLASS_IN,
            recordTypeOf(record), AvahiLookupFlags{}, onRecord, browser.get());
        return browser->object == nullptr ? nullptr : std::move(browser);
    }

    std::unique_ptr<AvahiGroup> makeGroup(AvahiGroupWatcher& watcher) override
    {
        AvahiEntryGroup* group = avahi_entry_group_new(&client, onGroupState, &watcher);
        return group == nullptr ? nullptr : std::make_unique<ClientGroup>(group);
    }

    int lastError() override { return avahi_client_errno(&client); }

    std::string domainName() override
    {
        const char* name = avahi_client_get_domain_name(&client);
        return name == nullptr ? "local" : name;
    }

private:
    AvahiClient& client;
};

} // namespace

std::unique_ptr<AvahiApi> makeAvahiClientApi(AvahiClient& client)
{
    return std::make_unique<ClientApi>(client);
}

} // namespace quillbox::dnssd
