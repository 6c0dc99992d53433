#include "platform/dnssd/processes/avahi_records.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

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

TEST(AvahiRecords, areReportedIfAddressesHaveTheSizeOfTheirFamily)
{
    Answers answers;
    const std::array<std::uint8_t, 20> data{10, 0, 0, 7, 1, 2, 3};
    constexpr std::array<std::uint16_t, 2> kTypes{AVAHI_DNS_TYPE_A, AVAHI_DNS_TYPE_AAAA};
    constexpr std::array<std::size_t, 7> kSizes{0, 3, 4, 5, 15, 16, 17};
    for (const std::uint16_t type : kTypes) {
        for (const std::size_t size : kSizes)
            reportRecord(answers, AvahiAnswers::Change::Found, {2, Family::IPv4}, type,
                         std::span(data).first(size));
    }
    EXPECT_EQ(answers.addresses, (std::vector<Address>{addressOf(Family::IPv4, data.data()),
                                                       addressOf(Family::IPv6, data.data())}));
}

} // namespace

} // namespace quillbox::dnssd
