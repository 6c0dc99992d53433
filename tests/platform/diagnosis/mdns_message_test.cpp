#include "platform/diagnosis/mdns_message.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox::diagnosis {

namespace {

std::string textOf(const std::vector<std::byte>& message)
{
    return {reinterpret_cast<const char*>(message.data()), message.size()};
}

std::vector<std::byte> header(unsigned flags, unsigned answers)
{
    std::vector<std::byte> message(12);
    message[2] = static_cast<std::byte>(flags);
    message[7] = static_cast<std::byte>(answers);
    return message;
}

TEST(MdnsMessage, aQuestionAsksForTypesAndForOneType)
{
    using namespace std::string_literals;
    EXPECT_EQ(textOf(mdnsQuestion(0x1234, "_smb._tcp")),
              "\x12\x34\0\0\0\2\0\0\0\0\0\0"s
              "\x09_services\x07_dns-sd\x04_udp\x05local\0\0\x0c\0\1"s
              "\x04_smb\x04_tcp\x05local\0\0\x0c\0\1"s);
}

TEST(MdnsMessage, aResponseWithAnAnswerIsOne)
{
    EXPECT_TRUE(isMdnsAnswer(header(0x84, 1)));
    EXPECT_FALSE(isMdnsAnswer(header(0x84, 0)));
    EXPECT_FALSE(isMdnsAnswer(header(0, 1)));
    EXPECT_FALSE(isMdnsAnswer(mdnsQuestion(0, "_smb._tcp")));
}

TEST(MdnsMessage, whatIsShorterThanAHeaderIsNone)
{
    auto message = header(0x84, 1);
    message.pop_back();
    EXPECT_FALSE(isMdnsAnswer(message));
    EXPECT_FALSE(isMdnsAnswer({}));
}

} // namespace

} // namespace quillbox::diagnosis
