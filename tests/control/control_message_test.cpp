#include "control/control_message.h"

#include <QJsonArray>
#include <QJsonObject>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

HelperStatus sampleStatus()
{
    return {.isReady = true,
            .text = "1 Quillbox device visible in Finder",
            .isShownInFinder = true,
            .isAutomatic = true,
            .phones = {{.name = "Quillbox \x1b[2J\n\u202e\"\\ K\u00fcche",
                        .hasFiles = true,
                        .hasWebManagement = true}},
            .relays = {{.name = "Quillbox A",
                        .target = "Quillbox A",
                        .traffic = {.sessions = 1,
                                    .sessionsInAll = 2,
                                    .bytesReceived = std::numeric_limits<std::int64_t>::max(),
                                    .bytesSent = (1ULL << 53) + 1}}},
            .total = {.sessions = 1, .sessionsInAll = 3, .bytesReceived = 5, .bytesSent = 6}};
}

ControlOutcome outcomeOf(const std::string& request)
{
    const auto decoded = decodedRequest(request);
    const auto* answer = std::get_if<ControlAnswer>(&decoded);
    return answer ? answer->outcome : ControlOutcome::Done;
}

TEST(ControlMessage, requestsComeBackAsTheyWere)
{
    const std::vector<ControlRequest> requests{
        {.command = ControlCommand::Status},
        {.command = ControlCommand::Open},
        {.command = ControlCommand::Open, .phone = "Quillbox \"\\\n\u202e K\u00fcche"},
        {.command = ControlCommand::Manage, .phone = std::string("nul\0", 4)},
        {.command = ControlCommand::Restart},
        {.command = ControlCommand::Quit}};
    for (const ControlRequest& request : requests) {
        const std::string text = encoded(request);
        EXPECT_EQ(text.find('\n'), std::string::npos);
        const auto decoded = decodedRequest(text);
        ASSERT_TRUE(std::holds_alternative<ControlRequest>(decoded)) << text;
        EXPECT_EQ(*std::get_if<ControlRequest>(&decoded), request);
    }
}

TEST(ControlMessage, answersComeBackAsTheyWere)
{
    const std::vector<ControlAnswer> answers{
        {},
        {.outcome = ControlOutcome::Refused, .text = "No\nwhy", .phones = {"a", "\u202e"}},
        {.outcome = ControlOutcome::UnknownPhone},
        {.outcome = ControlOutcome::NotUnderstood, .text = "x"},
        {.status = sampleStatus()}};
    for (const ControlAnswer& answer : answers) {
        const std::string text = encoded(answer);
        EXPECT_EQ(text.find('\n'), std::string::npos);
        EXPECT_EQ(decodedAnswer(text), answer) << text;
    }
}

TEST(ControlMessage, bytesThatAreNotUtf8BecomeUtf8)
{
    const auto answer = decodedAnswer(encoded(ControlAnswer{.text = "a\xff", .phones = {"\xc3"}}));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->text, "a\uFFFD");
    EXPECT_EQ(answer->phones.at(0), "\uFFFD");
}

TEST(ControlMessage, onlyTheExactFormOfARequestIsUnderstood)
{
    EXPECT_EQ(outcomeOf(R"({"version":1,"command":"status"})"), ControlOutcome::Done);
    for (const char* text : {
             "",
             "status",
             "[]",
             "null",
             R"({"command":"status"})",
             R"({"version":2,"command":"status"})",
             R"({"version":"1","command":"status"})",
             R"({"version":1.5,"command":"status"})",
             R"({"version":1,"command":"explode"})",
             R"({"version":1,"command":"Status"})",
             R"({"version":1,"command":["status"]})",
             R"({"version":1,"command":"status","more":1})",
             R"({"version":1,"command":"status","phone":"Quillbox"})",
             R"({"version":1,"command":"open","phone":7})",
             R"({"version":1,"command":"open","phone":null})",
             R"({"version":1,"command":"status"} x)",
             R"({"version":1,"command":"status")",
             "{\"version\":1,\"command\":\"open\",\"phone\":\"\xff\"}",
         })
        EXPECT_EQ(outcomeOf(text), ControlOutcome::NotUnderstood) << text;
}

TEST(ControlMessage, onlyTheExactFormOfAnAnswerIsUnderstood)
{
    ASSERT_TRUE(decodedAnswer(R"({"version":1,"outcome":"done","text":"","phones":[]})"));
    for (const char* text : {
             "",
             "{}",
             R"({"version":2,"outcome":"done","text":"","phones":[]})",
             R"({"version":1,"outcome":"perhaps","text":"","phones":[]})",
             R"({"version":1,"outcome":"done","phones":[]})",
             R"({"version":1,"outcome":"done","text":"","phones":[1]})",
             R"({"version":1,"outcome":"done","text":"","phones":"a"})",
             R"({"version":1,"outcome":"done","text":"","phones":[],"status":{}})",
             R"({"version":1,"outcome":"done","text":"","phones":[],"extra":true})",
         })
        EXPECT_FALSE(decodedAnswer(text)) << text;
}

TEST(ControlMessage, anAnswerMayHoldAStatusOfTheFirstVersion)
{
    std::string text = encoded(ControlAnswer{.status = sampleStatus()});
    const std::string hint = "\"hint\":\"\",";
    ASSERT_NE(text.find(hint), std::string::npos) << text;
    text.erase(text.find(hint), hint.size());
    EXPECT_EQ(decodedAnswer(text), ControlAnswer{.status = sampleStatus()});
}

TEST(ControlMessage, aStatusOfAnotherFormIsNotUnderstood)
{
    const QJsonObject good = jsonOf(sampleStatus());
    EXPECT_EQ(helperStatusIn(good), sampleStatus());
    for (const QString& key : good.keys()) {
        QJsonObject without = good;
        without.remove(key);
        EXPECT_EQ(helperStatusIn(without).has_value(), key == QStringLiteral("hint"))
            << key.toStdString();
        QJsonObject other = good;
        other.insert(key, QJsonValue());
        EXPECT_FALSE(helperStatusIn(other)) << key.toStdString();
    }
    QJsonObject negative = good;
    negative.insert(QStringLiteral("sessions"), -1);
    EXPECT_FALSE(helperStatusIn(negative));
    QJsonObject fraction = good;
    fraction.insert(QStringLiteral("bytesToPhone"), 1.5);
    EXPECT_FALSE(helperStatusIn(fraction));
    QJsonObject phones = good;
    phones.insert(QStringLiteral("phones"), QJsonArray{QStringLiteral("Quillbox")});
    EXPECT_FALSE(helperStatusIn(phones));
}

TEST(ControlMessage, commandsHaveTheNamesOfTheCommandLine)
{
    EXPECT_STREQ(nameOf(ControlCommand::Status), "status");
    EXPECT_STREQ(nameOf(ControlCommand::Open), "open");
    EXPECT_STREQ(nameOf(ControlCommand::Manage), "manage");
    EXPECT_STREQ(nameOf(ControlCommand::Restart), "restart");
    EXPECT_STREQ(nameOf(ControlCommand::Quit), "quit");
}

} // namespace

} // namespace quillbox
