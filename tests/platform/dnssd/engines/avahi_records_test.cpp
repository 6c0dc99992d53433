#include "platform/dnssd/processes/avahi_records.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

TEST(AvahiRecords, areReportedIfAddressesHaveTheSizeOfTheirFamily)
{
    std::vector<Event> events;
    std::map<RequestId, int> failures;
    const std::function<void(Event)> emit = [&](Event event) {
        events.push_back(std::move(event));
    };
    const AvahiAnswers answers(1, emit, failures);
    const Sighting sighting{2, Family::IPv4};
    const std::array<std::uint8_t, 20> data{10, 0, 0, 7, 1, 2, 3};
    constexpr std::array<std::uint16_t, 2> kTypes{AVAHI_DNS_TYPE_A, AVAHI_DNS_TYPE_AAAA};
    constexpr std::array<std::size_t, 7> kSizes{0, 3, 4, 5, 15, 16, 17};
    for (const std::uint16_t type : kTypes) {
        for (const std::size_t size : kSizes)
            tellRecord(answers, Change::Found, sighting, type, std::span(data).first(size));
    }
    const auto found = [&](Family family, std::size_t size) {
        return AddressAnswer{1, Change::Found, sighting,
                             addressOf(family, std::span(data).first(size))};
    };
    EXPECT_EQ(events, (std::vector<Event>{found(Family::IPv4, 4), found(Family::IPv6, 16)}));
}

} // namespace

} // namespace quillbox::dnssd
