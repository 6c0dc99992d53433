#include "platform/desktop/instances/instance_exchange.h"
#include "platform/running_applications.h"

#include <string>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using instance_protocol::answerIn;
using instance_protocol::lineOf;
using instance_protocol::lineOfAnswer;
using instance_protocol::Request;
using instance_protocol::requestIn;

TEST(InstanceProtocol, anActivationIsUnderstoodWithAndWithoutAToken)
{
    for (const std::string& token :
         {std::string(), std::string("-"), std::string("token-1_TIME9"), std::string(400, 't')}) {
        const Request request{.token = token};
        EXPECT_EQ(requestIn(lineOf(request).value()), request);
    }
}

TEST(InstanceProtocol, aMessageIsUnderstoodWithAndWithoutAToken)
{
    for (const std::string& token : {std::string(), std::string("token-1_TIME9")}) {
        for (const std::string& text : {std::string(), std::string(" two  words \0\r", 14),
                                        std::string(RunningApplication::kLongestMessage, 'x')}) {
            const Request request{.token = token, .text = text};
            EXPECT_EQ(requestIn(lineOf(request).value()), request);
        }
    }
}

TEST(InstanceProtocol, isThatOfEarlierVersions)
{
    EXPECT_EQ(lineOf({}), "activate");
    EXPECT_EQ(lineOf({.token = "token"}), "activate token");
    EXPECT_EQ(lineOf({.text = "{}"}), "message - {}");
    EXPECT_EQ(lineOf({.token = "token", .text = "{}"}), "message token {}");
    EXPECT_EQ(lineOfAnswer("{}"), "answer {}");
    EXPECT_EQ(instance_protocol::kActivated, "ok");
    EXPECT_EQ(instance_protocol::kNoDisplay, "no display");
}

TEST(InstanceProtocol, aTokenThatIsNoneIsNotHandedOn)
{
    for (const std::string& token :
         {std::string("two words"), std::string("line\nbreak"), std::string(401, 't')}) {
        EXPECT_EQ(lineOf({.token = token}), "activate");
        EXPECT_EQ(lineOf({.token = token, .text = "text"}), "message - text");
    }
}

TEST(InstanceProtocol, whatDoesNotFitInALineIsNotSaid)
{
    EXPECT_FALSE(lineOf({.text = "two\nlines"}));
    EXPECT_FALSE(lineOf({.text = std::string(RunningApplication::kLongestMessage + 1, 'x')}));
    EXPECT_FALSE(lineOfAnswer("two\nlines"));
    EXPECT_FALSE(lineOfAnswer(std::string(RunningApplication::kLongestAnswer + 1, 'x')));
}

TEST(InstanceProtocol, otherLinesAreNotUnderstood)
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

TEST(InstanceProtocol, anAnswerIsUnderstood)
{
    EXPECT_EQ(answerIn(lineOfAnswer("a b").value()), "a b");
    EXPECT_EQ(answerIn("answer "), "");
    for (const char* line : {"", "answer", "ok", " answer a"})
        EXPECT_FALSE(answerIn(line)) << line;
}

} // namespace

} // namespace quillbox
