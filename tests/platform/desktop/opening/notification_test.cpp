#include "platform/desktop/opening/notice.h"
#include "tests/fakes/recording_notice.h"
#include "tests/platform/desktop/event_wait.h"
#include "tests/platform/desktop/private_bus.h"

#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QString>
#include <QStringList>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using Shown = std::vector<std::string>;

constexpr uint kIdentifier = 7;

/// The desktop's notification service.
class NotificationService final : public QDBusVirtualObject {
public:
    NotificationService(const QDBusConnection& connection, QStringList itsCapabilities)
        : bus(connection), capabilities(std::move(itsCapabilities))
    {
        bus.registerVirtualObject(QStringLiteral("/org/freedesktop/Notifications"), this);
        EXPECT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.Notifications")));
    }

    QString introspect(const QString& /*path*/) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& /*connection*/) override
    {
        if (isSilent)
            return true;
        if (message.member() == QStringLiteral("GetCapabilities")) {
            bus.send(message.createReply(QVariant(capabilities)));
            return true;
        }
        EXPECT_EQ(message.member(), QStringLiteral("Notify"));
        EXPECT_EQ(message.signature(), QStringLiteral("susssasa{sv}i"));
        notified.push_back(message.arguments());
        bus.send(message.createReply(kIdentifier));
        return true;
    }

    QString text(std::size_t place, int argument) const
    {
        return notified.at(place).value(argument).toString();
    }

    QDBusConnection bus;
    const QStringList capabilities;
    bool isSilent = false;
    std::vector<QVariantList> notified;
};

constexpr int kReplaces = 1;
constexpr int kSummary = 3;
constexpr int kBody = 4;

class NotificationTest : public ::testing::Test {
protected:
    void makeService(const QStringList& capabilities = {QStringLiteral("body")})
    {
        service = std::make_unique<NotificationService>(bus.connect(), capabilities);
    }

    void show(const std::string& title, const std::string& text)
    {
        if (!notification)
            notification = makeNotification(bus.connect(), substitute, limit);
        notification->show(title, text, [this] { ++deliveries; });
    }

    bool waitForNotifications(std::size_t count)
    {
        return waitUntil([this, count] { return service->notified.size() == count; });
    }

    PrivateBus bus;
    std::chrono::milliseconds limit{10'000};
    std::unique_ptr<NotificationService> service;
    RecordingNotice substitute;
    int deliveries = 0;
    std::unique_ptr<Notice> notification;
};

TEST_F(NotificationTest, showsPlainText)
{
    makeService();
    show("Cannot open", "Because of <b>this</b> & that");
    ASSERT_TRUE(waitForNotifications(1));
    EXPECT_EQ(service->text(0, kSummary), QStringLiteral("Cannot open"));
    EXPECT_EQ(service->text(0, kBody), QStringLiteral("Because of <b>this</b> & that"));
    EXPECT_TRUE(substitute.shown.empty());
}

TEST_F(NotificationTest, escapesTheTextForAServiceThatInterpretsMarkup)
{
    makeService({QStringLiteral("body"), QStringLiteral("body-markup")});
    show("A <i>title</i> has no markup", "<a href=\"x\">&</a>");
    ASSERT_TRUE(waitForNotifications(1));
    EXPECT_EQ(service->text(0, kSummary), QStringLiteral("A <i>title</i> has no markup"));
    EXPECT_EQ(service->text(0, kBody),
              QStringLiteral("&lt;a href=&quot;x&quot;&gt;&amp;&lt;/a&gt;"));
}

TEST_F(NotificationTest, showsNoControlCharacters)
{
    makeService();
    show("a\nb", "c\x1b[1m\u202e");
    ASSERT_TRUE(waitForNotifications(1));
    EXPECT_EQ(service->text(0, kSummary), QStringLiteral("a\uFFFDb"));
    EXPECT_EQ(service->text(0, kBody), QStringLiteral("c\uFFFD[1m\uFFFD"));
}

TEST_F(NotificationTest, replacesTheOneBefore)
{
    makeService();
    show("first", "");
    ASSERT_TRUE(waitForNotifications(1));
    EXPECT_EQ(service->notified.front().value(kReplaces).toUInt(), 0U);
    // The answer to the first one may still be on its way when the second one is shown.
    EXPECT_TRUE(waitUntil([this] {
        show("again", "");
        waitUntil([this] { return service->notified.size() > 1; });
        return service->notified.back().value(kReplaces).toUInt() == kIdentifier;
    }));
}

TEST_F(NotificationTest, isDeliveredOnceTheServiceHasTakenIt)
{
    makeService();
    show("title", "text");
    EXPECT_EQ(deliveries, 0);
    EXPECT_TRUE(waitUntil([this] { return deliveries == 1; }));
    EXPECT_EQ(service->notified.size(), 1U);
}

TEST_F(NotificationTest, isSubstitutedWhereThereIsNoService)
{
    show("title", "text");
    EXPECT_TRUE(waitUntil([this] { return !substitute.shown.empty(); }));
    EXPECT_EQ(substitute.shown, Shown{"title: text"});
    EXPECT_EQ(deliveries, 0);
    substitute.deliveries.front()();
    EXPECT_EQ(deliveries, 1);
}

TEST_F(NotificationTest, isSubstitutedWhereTheServiceDoesNotAnswer)
{
    limit = 100ms;
    makeService();
    service->isSilent = true;
    show("title", "text");
    EXPECT_TRUE(waitUntil([this] { return !substitute.shown.empty(); }));
    EXPECT_EQ(substitute.shown, Shown{"title: text"});
    EXPECT_EQ(deliveries, 0);
    substitute.deliveries.front()();
    EXPECT_EQ(deliveries, 1);
}

TEST_F(NotificationTest, isSubstitutedWithoutABus)
{
    notification = makeNotification(QDBusConnection(QStringLiteral("none")), substitute);
    show("title", "text");
    EXPECT_EQ(substitute.shown, Shown{"title: text"});
    EXPECT_EQ(deliveries, 0);
    substitute.deliveries.front()();
    EXPECT_EQ(deliveries, 1);
}

} // namespace

} // namespace quillbox
