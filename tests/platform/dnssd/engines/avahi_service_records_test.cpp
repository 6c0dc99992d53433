#include "platform/dnssd/avahi/avahi_service_records.h"

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

using Bytes = std::vector<std::uint8_t>;

RegisterRequest service()
{
    RegisterRequest request;
    request.name = "A.b";
    request.type = "_smb._tcp";
    request.port = 0x1234;
    request.hostName = "pc.local";
    request.interfaceIndex = 3;
    return request;
}

Bytes bytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

TEST(ServiceRecords, areThoseOfDnsSd)
{
    const auto records = serviceRecords(service(), "local");
    ASSERT_EQ(records.size(), 4U);
    EXPECT_EQ(records[0].name, "_smb._tcp.local");
    EXPECT_EQ(records[0].type, 12);
    EXPECT_EQ(records[0].lifetime, 4500U);
    EXPECT_FALSE(records[0].isUnique);
    EXPECT_EQ(records[0].data, bytesOf({"\3A.b\4_smb\4_tcp\5local\0", 21}));
    EXPECT_EQ(records[1].name, "A\\.b._smb._tcp.local");
    EXPECT_EQ(records[1].type, 33);
    EXPECT_EQ(records[1].lifetime, 120U);
    EXPECT_TRUE(records[1].isUnique);
    EXPECT_EQ(records[1].data, bytesOf({"\0\0\0\0\x12\x34\2pc\5local\0", 16}));
    EXPECT_EQ(records[2].name, records[1].name);
    EXPECT_EQ(records[2].type, 16);
    EXPECT_EQ(records[2].lifetime, 4500U);
    EXPECT_TRUE(records[2].isUnique);
    EXPECT_EQ(records[2].data, Bytes{0});
    EXPECT_EQ(records[3].name, "_services._dns-sd._udp.local");
    EXPECT_EQ(records[3].type, 12);
    EXPECT_EQ(records[3].lifetime, 4500U);
    EXPECT_FALSE(records[3].isUnique);
    EXPECT_EQ(records[3].data, bytesOf({"\4_smb\4_tcp\5local\0", 17}));
    for (const auto& record : records)
        EXPECT_EQ(record.interfaceIndex, 3);
}

TEST(ServiceRecords, areNoneOfWhatCannotBe)
{
    RegisterRequest request = service();
    request.name = std::string(64, 'x');
    EXPECT_TRUE(serviceRecords(request, "local").empty());
    request = service();
    request.type = "smb";
    EXPECT_TRUE(serviceRecords(request, "local").empty());
    request = service();
    request.hostName = std::string(64, 'x') + ".local";
    EXPECT_TRUE(serviceRecords(request, "local").empty());
    request.hostName = "";
    EXPECT_TRUE(serviceRecords(request, "local").empty());
    EXPECT_TRUE(serviceRecords(service(), std::string(64, 'x')).empty());
}

} // namespace

} // namespace quillbox::dnssd
