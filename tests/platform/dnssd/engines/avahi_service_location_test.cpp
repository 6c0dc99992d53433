#include "platform/dnssd/avahi/avahi_service_location.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

namespace quillbox::dnssd {

namespace {

using Bytes = std::vector<std::uint8_t>;

/// The data of an SRV record (RFC 2782): priority 1, weight 2, port 4445, and the labels of the
/// target with the root label at the end.
Bytes record(const std::vector<std::string>& labels)
{
    Bytes bytes{0, 1, 0, 2, 0x11, 0x5d};
    for (const std::string& label : labels) {
        bytes.push_back(static_cast<std::uint8_t>(label.size()));
        bytes.insert(bytes.end(), label.begin(), label.end());
    }
    bytes.push_back(0);
    return bytes;
}

TEST(ServiceLocation, hasHostAndPort)
{
    EXPECT_EQ(decodeServiceLocation(record({"phone", "local"})),
              (HostEndpoint{"phone.local", 4445}));
}

TEST(ServiceLocation, escapesAsDnsPresentsIt)
{
    const auto location = decodeServiceLocation(record({"a.b\\c d\xff", "local"}));
    ASSERT_TRUE(location);
    EXPECT_EQ(location->host, "a\\.b\\\\c\\032d\\255.local");
}

TEST(ServiceLocation, takesTheLongestNames)
{
    const std::string longest(63, 'x');
    const auto location = decodeServiceLocation(
        record({longest, longest, longest, std::string(61, 'x')})); // 255 bytes in all
    ASSERT_TRUE(location);
    EXPECT_EQ(location->host.size(), 63U * 3 + 61 + 3);

    const std::string dots(63, '\x01');
    ASSERT_TRUE(decodeServiceLocation(record({dots, dots, dots, std::string(61, '\x01')})));
}

TEST(ServiceLocation, isNothingWhenTheNameIsTooLong)
{
    const std::string longest(63, 'x');
    EXPECT_FALSE(decodeServiceLocation(record({longest, longest, longest, std::string(62, 'x')})));
    EXPECT_FALSE(decodeServiceLocation(record({longest, longest, longest, longest, longest})));
    EXPECT_FALSE(decodeServiceLocation(Bytes(70'000, 1)));
}

TEST(ServiceLocation, isNothingWhenCutOffAnywhere)
{
    const Bytes whole = record({"phone", "local"});
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(decodeServiceLocation(std::span(whole).first(length))) << length;
}

TEST(ServiceLocation, isNothingWhenTheLastLabelIsCutOff)
{
    EXPECT_FALSE(decodeServiceLocation(Bytes{0, 0, 0, 0, 1, 0xbd, 3, 'a', 'b'}));
    EXPECT_FALSE(decodeServiceLocation(Bytes{0, 0, 0, 0, 1, 0xbd, 3, 'a', 'b', 'c'}));
}

TEST(ServiceLocation, neverReadsBehindItsData)
{
    // The data ends where the memory ends that may be read.
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    void* const memory =
        ::mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto* const end = static_cast<std::uint8_t*>(memory) + page;
    ASSERT_EQ(::mprotect(end, page, PROT_NONE), 0);
    const Bytes whole = record({"abc"});
    for (std::size_t size = 0; size < whole.size(); ++size) {
        std::copy_n(whole.begin(), size, end - size);
        EXPECT_FALSE(decodeServiceLocation({end - size, size}));
    }
    ::munmap(memory, 2 * page);
}

TEST(ServiceLocation, isNothingWhenALabelIsTooLong)
{
    EXPECT_TRUE(decodeServiceLocation(record({std::string(63, 'x')})));
    EXPECT_FALSE(decodeServiceLocation(record({std::string(64, 'x')})));
}

TEST(ServiceLocation, isNothingWhenBytesFollow)
{
    Bytes bytes = record({"phone", "local"});
    bytes.push_back(0);
    EXPECT_FALSE(decodeServiceLocation(bytes));
}

TEST(ServiceLocation, isNothingWhenTheNameIsCompressed)
{
    EXPECT_FALSE(decodeServiceLocation(Bytes{0, 0, 0, 0, 1, 0xbd, 0xc0, 0x0c}));
    EXPECT_FALSE(decodeServiceLocation(Bytes{0, 0, 0, 0, 1, 0xbd, 1, 'a', 0xc0, 0x00, 0}));
    EXPECT_FALSE(decodeServiceLocation(Bytes{0, 0, 0, 0, 1, 0xbd, 0x40, 'a', 0}));
}

TEST(ServiceLocation, isNothingWhenThereIsNoHost)
{
    EXPECT_FALSE(decodeServiceLocation(record({})));
    EXPECT_FALSE(decodeServiceLocation({}));
}

} // namespace

} // namespace quillbox::dnssd
