#include "platform/desktop/instances/copy_protocol.h"
#include "platform/running_applications.h"

#include <string>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using copy_protocol::Request;
using copy_protocol::requestIn;

TEST(CopyProtocol, anActivationIsUnderstoodWithAndWithoutAToken)
{
    for (const std::string& token :
         {std::string(), std::string("token-1_TIME9"), std::string(400, 't')}) {
        const auto request = requestIn(copy_protocol::activation(token));
        ASSERT_TRUE(request) << token;
        EXPECT_EQ(request->kind, Request::Kind::Activation);
        EXPECT_EQ(request->token, token);
    }
}

TEST(CopyProtocol, aMessageIsUnderstoodWithAndWithoutAToken)
{
    for (const std::string& token : {std::string(), std::string("token-1_TIME9")}) {
        for (const std::string& text : {std::string(), std::string(" two  words \0\r", 14),
                                        std::string(RunningApplication::kLongestMessage, 'x')}) {
            const auto line = copy_protocol::message(token, text);
            ASSERT_TRUE(line);
            const auto request = requestIn(*line);
            ASSERT_TRUE(request);
            EXPECT_EQ(request->kind, Request::Kind::Message);
            EXPECT_EQ(request->token, token);
            EXPECT_EQ(request->text, text);
        }
    }
}

TEST(CopyProtocol, aTokenThatIsNoneIsNotHandedOn)
{
    for (const std::string& token :
         {std::string("two words"), std::string("line\nbreak"), std::string(401, 't')}) {
        EXPECT_EQ(copy_protocol::activation(token), "activate");
        EXPECT_EQ(copy_protocol::message(token, "text"), "message - text");
    }
}

TEST(CopyProtocol, whatDoesNotFitInALineIsNotSaid)
{
    EXPECT_FALSE(copy_protocol::message("", "two\nlines"));
    EXPECT_FALSE(
        copy_protocol::message("", std::string(RunningApplication::kLongestMessage + 1, 'x')));
    EXPECT_FALSE(copy_protocol::answer("two\nlines"));
    EXPECT_FALSE(copy_protocol::answer(std::string(RunningApplication::kLongestAnswer + 1, 'x')));
}

TEST(CopyProtocol, otherLinesAreNotUnderstood)
{
    for (const std::string& line :
         {std::string(), std::string("GET / HTTP/1.1"), std::string("activated"),
          std::string("activate-token"), std::string("activate "),
          std::string("activate two words"), std::string("activate \x1b[2J"),
          std::string("Activate"), std::string("message"), std::string("message "),
          std::string("message -"), std::string("message  text"), std::string("message \x07 text"),
          "message - " + std::string(8193, 'x'), std::string("\0", 1)})
        EXPECT_FALSE(requestIn(line)) << line;
}

TEST(CopyProtocol, anAnswerIsUnderstood)
{
    EXPECT_EQ(copy_protocol::answerIn(copy_protocol::answer("a b").value()), "a b");
    EXPECT_EQ(copy_protocol::answerIn("answer "), "");
    for (const char* line : {"", "answer", "ok", " answer a"})
        EXPECT_FALSE(copy_protocol::answerIn(line)) << line;
}

} // namespace

} // namespace quillbox
