#include "platform/dnssd/processes/avahi_client_api.h"
#include "platform/dnssd/processes/avahi_records.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

/// What libavahi-client was given for a lookup.
struct Lookup {
    AvahiRecordBrowserCallback callback = nullptr;
    void* context = nullptr;
};
Lookup lookup; // the library's functions get no argument for it

AvahiRecordBrowser* browseRecord(AvahiClient* /*client*/, AvahiIfIndex /*interfaceIndex*/,
                                 AvahiProtocol /*protocol*/, const char* /*name*/,
                                 std::uint16_t /*recordClass*/, std::uint16_t /*type*/,
                                 AvahiLookupFlags /*flags*/, AvahiRecordBrowserCallback callback,
                                 void* context)
{
    lookup = {callback, context};
    return reinterpret_cast<AvahiRecordBrowser*>(&lookup);
}

class Answers final : public AvahiAnswers {
public:
    void onService(Change /*change*/, const Sighting& /*sighting*/, const char* /*name*/,
                   const char* /*type*/, const char* /*domain*/) override
    {
    }
    void onLocation(Change /*change*/, const Sighting& /*sighting*/,
                    const ServiceLocation& /*location*/) override
    {
    }
    void onAddress(Change /*change*/, const Sighting& /*sighting*/, const Address& address) override
    {
        addresses.push_back(address);
    }
    void onSettled() override {}
    void onFailed(int /*error*/) override {}

    std::vector<Address> addresses;
};

TEST(AvahiClientApi, passesOnOnlyAddressesOfTheSizeOfTheirFamily)
{
    AvahiClientLibrary library;
    library.client_errno = [](AvahiClient*) { return 0; };
    library.record_browser_new = &browseRecord;
    library.record_browser_free = [](AvahiRecordBrowser*) { return 0; };
    const auto api = makeAvahiClientApi(library, reinterpret_cast<AvahiClient&>(lookup));
    Answers answers;
    const auto asked = api->lookUp("phone.local", AvahiApi::Record::IPv4Address, answers);
    ASSERT_TRUE(asked);
    const std::array<std::uint8_t, 20> data{10, 0, 0, 7, 1, 2, 3};
    constexpr std::array<std::uint16_t, 2> kTypes{AVAHI_DNS_TYPE_A, AVAHI_DNS_TYPE_AAAA};
    constexpr std::array<std::size_t, 7> kSizes{0, 3, 4, 5, 15, 16, 17};
    for (const std::uint16_t type : kTypes) {
        for (const std::size_t size : kSizes) {
            lookup.callback(nullptr, 2, AVAHI_PROTO_INET, AVAHI_BROWSER_NEW, "phone.local",
                            AVAHI_DNS_CLASS_IN, type, data.data(), size, AvahiLookupResultFlags{},
                            lookup.context);
        }
    }
    EXPECT_EQ(answers.addresses, (std::vector<Address>{addressOf(Family::IPv4, data.data()),
                                                       addressOf(Family::IPv6, data.data())}));
}

TEST(AvahiRecords, haveNoEmptyStringAmongOthersOfAText)
{
    const TxtStrings txt({"", "a=b", ""});
    EXPECT_EQ(avahi_string_list_length(txt.get()), 1U);
    EXPECT_EQ(TxtStrings({""}).get(), nullptr);
}

} // namespace

} // namespace quillbox::dnssd
