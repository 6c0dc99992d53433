#include "control/helper_status.h"
#include "platform/values/text.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <string>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// Control characters of one and of several bytes, and characters that hide or reorder text.
constexpr const char* kHostile =
    "Quillbox \x1b[2J\r\n\x7f\u009b31m\u202e\u2066\u2028\U000E0041\"\\";

HelperStatus statusWith(const std::string& name)
{
    return {.isReady = true,
            .text = name + " is visible",
            .phones = {{.name = name, .hasFiles = true}},
            .relays = {{.name = name, .target = name}}};
}

QJsonObject parsed(const std::string& text)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
}

TEST(HelperStatus, isReadableForPeople)
{
    const HelperStatus status{
        .isReady = true,
        .text = "2 Quillbox devices visible in Finder",
        .isShownInFinder = true,
        .phones = {{.name = "Quillbox K\u00fcche", .hasFiles = true, .hasWebManagement = true},
                   {.name = "Quillbox Office", .hasWebManagement = true}},
        .relays = {{.name = "Quillbox K\u00fcche",
                    .target = "Quillbox K\u00fcche",
                    .host = "quillbox-kuche-pc-1.local",
                    .traffic = {.sessions = 1,
                                .sessionsInAll = 3,
                                .bytesReceived = 10,
                                .bytesSent = 200}}},
        .total = {.sessions = 1, .sessionsInAll = 7, .bytesReceived = 11, .bytesSent = 222}};
    EXPECT_EQ(plainText(status), "Status: ready: 2 Quillbox devices visible in Finder\n"
                                 "Show in Finder: on\n"
                                 "Automatic discovery: off\n"
                                 "Phones: 2\n"
                                 "  Quillbox K\u00fcche\n"
                                 "    files, web management\n"
                                 "  Quillbox Office\n"
                                 "    web management\n"
                                 "Relays: 1\n"
                                 "  Quillbox K\u00fcche\n"
                                 "    target: Quillbox K\u00fcche\n"
                                 "    host: quillbox-kuche-pc-1.local\n"
                                 "    sessions: 1 now, 3 in all\n"
                                 "    bytes: 10 to the phone, 200 from the phone\n"
                                 "Since the start:\n"
                                 "    sessions: 1 now, 7 in all\n"
                                 "    bytes: 11 to the phone, 222 from the phone\n");
}

TEST(HelperStatus, saysWhatFileManagersLack)
{
    const HelperStatus status{.text = "1 Quillbox device visible in Finder",
                              .hint = "Nobody lists it."};
    EXPECT_THAT(plainText(status), HasSubstr("visible in Finder\nHint: Nobody lists it.\nShow"));
    EXPECT_EQ(helperStatusIn(jsonOf(status)), status);
    EXPECT_EQ(jsonOf(status)[QStringLiteral("hint")], QStringLiteral("Nobody lists it."));
    EXPECT_EQ(jsonOf(HelperStatus())[QStringLiteral("hint")], QString());
    EXPECT_THAT(plainText(HelperStatus{.hint = kHostile}), Not(HasSubstr("\x1b")));
}

TEST(HelperStatus, saysWhatTheStartChose)
{
    const HelperStatus status{
        .start = StartSettings{.reach = Reach::ThisComputer, .dnsSd = DnsSdChoice::Embedded}};
    EXPECT_THAT(plainText(status), HasSubstr("\nThis computer only: on\nDNS-SD: embedded\nPhones"));
    QJsonObject json = jsonOf(status);
    EXPECT_EQ(helperStatusIn(json), status);
    EXPECT_EQ(json[QStringLiteral("thisComputerOnly")], true);
    EXPECT_EQ(json[QStringLiteral("dnsSd")], QStringLiteral("embedded"));
    json[QStringLiteral("dnsSd")] = QStringLiteral("avahi");
    EXPECT_FALSE(helperStatusIn(json));
    json.remove(QStringLiteral("dnsSd"));
    EXPECT_FALSE(helperStatusIn(json));
    EXPECT_THAT(plainText(HelperStatus{.start = StartSettings()}),
                HasSubstr("\nThis computer only: off\nDNS-SD: auto\n"));
}

TEST(HelperStatus, givesATerminalNothingToActUpon)
{
    const std::string plain = plainText(statusWith(kHostile));
    EXPECT_TRUE(isValidUtf8(plain));
    for (const char* hostile :
         {"\x1b", "\r", "\x7f", "\u009b", "\u202e", "\u2066", "\u2028", "\U000E0041"})
        EXPECT_THAT(plain, Not(HasSubstr(hostile)));
    EXPECT_THAT(plain, HasSubstr("Quillbox \uFFFD[2J\uFFFD\uFFFD\uFFFD\uFFFD31m\uFFFD"));
    // Names add no lines.
    EXPECT_EQ(std::count(plain.begin(), plain.end(), '\n'), 14);
}

TEST(HelperStatus, asJsonHoldsNamesVerbatim)
{
    for (const std::string name : {kHostile, "Quillbox K\u00fcche \U0001F4F1", ""}) {
        const std::string json = jsonText(statusWith(name));
        EXPECT_EQ(helperStatusIn(parsed(json)), statusWith(name));
    }
}

TEST(HelperStatus, asJsonGivesATerminalNothingToActUponEither)
{
    const std::string json = jsonText(statusWith(kHostile));
    EXPECT_TRUE(isValidUtf8(json));
    for (const char* hostile :
         {"\x1b", "\r", "\x7f", "\u009b", "\u202e", "\u2066", "\u2028", "\U000E0041"})
        EXPECT_THAT(json, Not(HasSubstr(hostile)));
    EXPECT_THAT(json,
                HasSubstr(R"(\u001b[2J\r\n\u007f\u009b31m\u202e\u2066\u2028\udb40\udc41\"\\)"));
    EXPECT_EQ(json.back(), '\n');
    EXPECT_THAT(jsonText(statusWith("Quillbox K\u00fcche")), HasSubstr("Quillbox K\u00fcche"));
}

TEST(HelperStatus, isNotReadFromJsonWithAnEntryThatIsUnsound)
{
    const QJsonObject sound = parsed(jsonText(statusWith("Quillbox")));
    ASSERT_TRUE(helperStatusIn(sound));
    for (const char* list : {"phones", "relays"}) {
        const auto withEntry = [&](const QJsonValue& entry) {
            QJsonObject object = sound;
            object[QLatin1String(list)] = QJsonArray{entry};
            return helperStatusIn(object);
        };
        const QJsonObject entry = sound[QLatin1String(list)].toArray().first().toObject();
        EXPECT_TRUE(withEntry(entry)) << list;
        for (const QString& key : entry.keys()) {
            QJsonObject changed = entry;
            changed.remove(key);
            EXPECT_FALSE(withEntry(changed)) << list << " without " << key.toStdString();
            changed[key] = QJsonArray();
            EXPECT_FALSE(withEntry(changed)) << list << " with a list as " << key.toStdString();
        }
        QJsonObject larger = entry;
        larger[QStringLiteral("more")] = true;
        EXPECT_FALSE(withEntry(larger)) << list;
        EXPECT_FALSE(withEntry(QStringLiteral("Quillbox"))) << list;
        EXPECT_FALSE(withEntry(QJsonObject())) << list;
    }
}

TEST(HelperStatus, namesTheHostsOfRelaysThatAreAdvertised)
{
    HelperStatus status = statusWith("Quillbox");
    EXPECT_THAT(plainText(status), Not(HasSubstr("host:")));
    EXPECT_THAT(jsonText(status), Not(HasSubstr("host")));
    status.relays.at(0).host = "quillbox-pc-1.local";
    EXPECT_THAT(jsonText(status), HasSubstr(R"("host": "quillbox-pc-1.local")"));
    EXPECT_EQ(helperStatusIn(jsonOf(status)), status);
}

TEST(HelperStatus, isReadFromJsonOfItsVersionOnly)
{
    QJsonObject other = parsed(jsonText(statusWith("Quillbox")));
    for (const int version : {0, 2}) {
        other[QStringLiteral("version")] = version;
        EXPECT_FALSE(helperStatusIn(other)) << version;
    }
}

TEST(HelperStatus, isReadFromJsonOfACopyThatKnowsNoHints)
{
    QJsonObject older = parsed(jsonText(statusWith("Quillbox")));
    older.remove(QStringLiteral("hint"));
    EXPECT_EQ(helperStatusIn(older), statusWith("Quillbox"));
    older[QStringLiteral("hint")] = true;
    EXPECT_FALSE(helperStatusIn(older));
}

TEST(HelperStatus, asJsonIsUtf8EvenWhenANameIsNot)
{
    const std::string json = jsonText(statusWith("Quillbox \xff"));
    EXPECT_TRUE(isValidUtf8(json));
    EXPECT_EQ(helperStatusIn(parsed(json)).value().phones.at(0).name, "Quillbox \uFFFD");
}

} // namespace

} // namespace quillbox
