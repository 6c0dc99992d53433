#include "platform/desktop/settings/background_portal.h"
#include "tests/platform/desktop/event_wait.h"
#include "tests/platform/desktop/private_bus.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using Outcome = AutostartResult::Outcome;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

/// The desktop's portal, which sends its response before the reply to the request.
class Portal final : public QDBusVirtualObject {
public:
    explicit Portal(QDBusConnection connection) : bus(std::move(connection))
    {
        bus.registerVirtualObject(QStringLiteral("/org/freedesktop/portal/desktop"), this,
                                  QDBusConnection::SubPath);
        EXPECT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop")));
    }

    QString introspect(const QString& /*path*/) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& /*connection*/) override
    {
        if (message.interface() == QStringLiteral("org.freedesktop.portal.Request")) {
            EXPECT_EQ(message.member(), QStringLiteral("Close"));
            closed.push_back(message.path());
            return true;
        }
        EXPECT_EQ(message.interface(), QStringLiteral("org.freedesktop.portal.Background"));
        EXPECT_EQ(message.member(), QStringLiteral("RequestBackground"));
        EXPECT_EQ(message.signature(), QStringLiteral("sa{sv}"));
        const auto options = qdbus_cast<QVariantMap>(message.arguments().value(1));
        requests.push_back(options);
        if (error != QDBusError::NoError) {
            bus.send(message.createErrorReply(error, QStringLiteral("Nope")));
            return true;
        }
        caller = message.service();
        path = QStringLiteral("/org/freedesktop/portal/desktop/request/")
               + caller.mid(1).replace(u'.', u'_') + u'/'
               + (isOld ? QStringLiteral("t1")
                        : options.value(QStringLiteral("handle_token")).toString());
        if (!isOld)
            respond();
        if (!isStuck)
            bus.send(message.createReply(QVariant::fromValue(QDBusObjectPath(path))));
        return true;
    }

    void respond()
    {
        if (!response || caller.isEmpty())
            return;
        QDBusMessage signal = QDBusMessage::createTargetedSignal(
            caller, path, QStringLiteral("org.freedesktop.portal.Request"),
            QStringLiteral("Response"));
        signal.setArguments({*response, results});
        bus.send(signal);
    }

    QDBusConnection bus;
    std::optional<uint> response = 0; ///< nullopt: none
    QVariantMap results;
    bool isOld = false;   ///< chooses the path of the request, and responds only on demand
    bool isStuck = false; ///< does not reply to the request
    QDBusError::ErrorType error = QDBusError::NoError; ///< the reply to the request
    std::vector<QVariantMap> requests;
    QString path; ///< of the last request
    std::vector<QString> closed;

private:
    QString caller;
};

class BackgroundPortal : public ::testing::Test {
protected:
    void makePortal() { portal = std::make_unique<Portal>(bus.connect()); }

    /// What the portal finds after it has been asked.
    static QVariantMap autostart(bool isOn)
    {
        return {{QStringLiteral("background"), true}, {QStringLiteral("autostart"), isOn}};
    }

    PrivateBus bus;
    std::unique_ptr<Portal> portal;
};

TEST_F(BackgroundPortal, turnsTheStartAtLoginOn)
{
    makePortal();
    portal->results = autostart(true);
    const auto result = requestAutostart(Autostart::On, bus.connect());
    EXPECT_EQ(result.outcome, Outcome::Done);
    EXPECT_EQ(result.text, "Starts at login from now on");
    ASSERT_THAT(portal->requests, SizeIs(1));
    const QVariantMap& options = portal->requests.front();
    EXPECT_EQ(options.value(QStringLiteral("autostart")), true);
    EXPECT_EQ(options.value(QStringLiteral("commandline")).toStringList(),
              (QStringList{QStringLiteral("quillbox-helper"), QStringLiteral("--hidden")}));
    EXPECT_EQ(options.value(QStringLiteral("dbus-activatable")), false);
    EXPECT_FALSE(options.value(QStringLiteral("reason")).toString().isEmpty());
}

TEST_F(BackgroundPortal, turnsTheStartAtLoginOff)
{
    makePortal();
    portal->results = autostart(false);
    // Refused is only the permission to run in the background; the start is off all the same.
    for (const uint response : {0U, 1U}) {
        portal->response = response;
        const auto result = requestAutostart(Autostart::Off, bus.connect());
        EXPECT_EQ(result.outcome, Outcome::Done);
        EXPECT_EQ(result.text, "Does not start at login any more");
        EXPECT_EQ(portal->requests.back().value(QStringLiteral("autostart")), false);
    }
}

TEST_F(BackgroundPortal, tellsThatItWasRefused)
{
    makePortal();
    for (const uint response : {1U, 2U}) {
        portal->response = response;
        for (const auto& results : {QVariantMap(), autostart(false), autostart(true)}) {
            portal->results = results;
            const auto result = requestAutostart(Autostart::On, bus.connect());
            EXPECT_EQ(result.outcome, Outcome::Refused);
            EXPECT_THAT(result.text, AllOf(HasSubstr("refused"), HasSubstr("own settings")));
        }
    }
    portal->results = {};
    EXPECT_EQ(requestAutostart(Autostart::Off, bus.connect()).outcome, Outcome::Refused);
}

TEST_F(BackgroundPortal, tellsThatTheDesktopDoesNotDoIt)
{
    makePortal();
    for (const auto& results : {QVariantMap(), autostart(false)}) {
        portal->results = results;
        const auto result = requestAutostart(Autostart::On, bus.connect());
        EXPECT_EQ(result.outcome, Outcome::Refused);
        EXPECT_THAT(result.text, HasSubstr("the desktop does not do it"));
    }
}

TEST_F(BackgroundPortal, mayChooseThePathOfItsResponse)
{
    makePortal();
    portal->isOld = true;
    portal->results = autostart(true);
    // Again and again, because nobody tells the portal when the caller listens at that path.
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, portal.get(), [this] { portal->respond(); });
    timer.start(20ms);
    EXPECT_EQ(requestAutostart(Autostart::On, bus.connect()).outcome, Outcome::Done);
}

TEST_F(BackgroundPortal, isNotWaitedForForeverAndTheRequestIsWithdrawn)
{
    makePortal();
    portal->response = std::nullopt;
    const QDBusConnection caller = bus.connect();
    for (const auto& [isStuck, isOld] :
         {std::pair(false, false), std::pair(false, true), std::pair(true, false)}) {
        portal->isStuck = isStuck;
        portal->isOld = isOld;
        portal->closed.clear();
        const auto result = requestAutostart(Autostart::On, caller, 100ms);
        EXPECT_EQ(result.outcome, Outcome::Failed);
        EXPECT_THAT(result.text, HasSubstr("the desktop does not answer"));
        waitUntil([this] { return !portal->closed.empty(); });
        EXPECT_THAT(portal->closed, ElementsAre(portal->path));
    }
}

TEST_F(BackgroundPortal, thatGivesNoReplyIsNotTakenForAMissingOne)
{
    makePortal();
    for (const auto error : {QDBusError::NoReply, QDBusError::Timeout, QDBusError::TimedOut}) {
        portal->error = error;
        const auto result = requestAutostart(Autostart::On, bus.connect());
        EXPECT_EQ(result.outcome, Outcome::Failed);
        EXPECT_THAT(result.text, HasSubstr("the desktop does not answer"));
    }
}

TEST_F(BackgroundPortal, isToldNothingMoreOnceItHasAnswered)
{
    makePortal();
    portal->results = autostart(true);
    const QDBusConnection caller = bus.connect();
    requestAutostart(Autostart::On, caller);
    requestAutostart(Autostart::On, caller); // after which a Close of the first would be there
    EXPECT_THAT(portal->closed, SizeIs(0));
}

TEST_F(BackgroundPortal, mayBeMissing)
{
    const auto withoutPortals = requestAutostart(Autostart::On, bus.connect());
    EXPECT_EQ(withoutPortals.outcome, Outcome::Failed);
    EXPECT_THAT(withoutPortals.text, HasSubstr("the desktop has no portal for it ("));
    makePortal();
    portal->error = QDBusError::UnknownMethod;
    const auto withoutThisOne = requestAutostart(Autostart::Off, bus.connect());
    EXPECT_EQ(withoutThisOne.outcome, Outcome::Failed);
    EXPECT_THAT(withoutThisOne.text, HasSubstr("the desktop has no portal for it (Nope)"));
    const auto withoutBus =
        requestAutostart(Autostart::On, QDBusConnection(QStringLiteral("none")));
    EXPECT_EQ(withoutBus.outcome, Outcome::Failed);
    EXPECT_THAT(withoutBus.text, HasSubstr("there is no session bus"));
}

} // namespace

} // namespace quillbox
