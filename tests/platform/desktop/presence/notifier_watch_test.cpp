#include "platform/desktop/presence/status_host_watch.h"
#include "tests/platform/desktop/event_wait.h"
#include "tests/platform/desktop/private_bus.h"

#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <chrono>
#include <memory>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

const QString& registryName()
{
    static const QString name = QStringLiteral("org.kde.StatusNotifierWatcher");
    return name;
}

class Registry final : public QDBusVirtualObject {
public:
    explicit Registry(QDBusConnection connection) : bus(std::move(connection))
    {
        bus.registerVirtualObject(QStringLiteral("/StatusNotifierWatcher"), this);
        EXPECT_TRUE(bus.registerService(registryName()));
    }
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;
    ~Registry() override
    {
        bus.unregisterService(registryName());
        bus.unregisterObject(QStringLiteral("/StatusNotifierWatcher"));
    }

    QString introspect(const QString& /*path*/) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& /*connection*/) override
    {
        ++questions;
        if (isBroken)
            bus.send(message.createErrorReply(QStringLiteral("org.example.Broken"), QString()));
        else
            bus.send(message.createReply(QVariant::fromValue(QDBusVariant(hasHost))));
        return true;
    }

    void setHost(bool isThere)
    {
        hasHost = isThere;
        bus.send(
            QDBusMessage::createSignal(QStringLiteral("/StatusNotifierWatcher"), registryName(),
                                       isThere ? QStringLiteral("StatusNotifierHostRegistered")
                                               : QStringLiteral("StatusNotifierHostUnregistered")));
    }

    QDBusConnection bus;
    bool hasHost = false;
    bool isBroken = false;
    int questions = 0;
};

class NotifierWatchTest : public ::testing::Test {
protected:
    using State = NotifierWatch::State;

    bool becomes(State state)
    {
        return waitUntil([&] { return watch->state() == state; });
    }

    void makeWatch()
    {
        watch = std::make_unique<NotifierWatch>(bus.connect(), [this] { ++changes; });
    }

    PrivateBus bus;
    std::unique_ptr<NotifierWatch> watch;
    int changes = 0;
};

TEST_F(NotifierWatchTest, knowsNothingBeforeTheBusHasAnswered)
{
    makeWatch();
    EXPECT_EQ(watch->state(), State::Unknown);
    EXPECT_TRUE(becomes(State::Absent));
    EXPECT_EQ(changes, 1);
}

TEST_F(NotifierWatchTest, startsNoRegistry)
{
    bus.makeActivatable(registryName(), QStringLiteral("/bin/false"));
    makeWatch();
    EXPECT_TRUE(waitUntil([&] { return watch->state() != State::Unknown; }));
    EXPECT_EQ(watch->state(), State::Absent);
}

TEST_F(NotifierWatchTest, knowsThatThereIsNothingWithoutABus)
{
    watch = std::make_unique<NotifierWatch>(QDBusConnection(QStringLiteral("none")), [] {});
    EXPECT_EQ(watch->state(), State::Absent);
}

TEST_F(NotifierWatchTest, findsAHostThatIsThere)
{
    Registry registry(bus.connect());
    registry.hasHost = true;
    makeWatch();
    EXPECT_TRUE(becomes(State::Hosted));
}

TEST_F(NotifierWatchTest, hearsOfAHostThatComesAndGoes)
{
    Registry registry(bus.connect());
    makeWatch();
    EXPECT_TRUE(becomes(State::Watched));
    registry.setHost(true);
    EXPECT_TRUE(becomes(State::Hosted));
    registry.setHost(false);
    EXPECT_TRUE(becomes(State::Watched));
}

TEST_F(NotifierWatchTest, hearsOfARegistryThatComesAndGoes)
{
    makeWatch();
    EXPECT_TRUE(becomes(State::Absent));
    auto registry = std::make_unique<Registry>(bus.connect());
    EXPECT_TRUE(becomes(State::Watched));
    registry.reset();
    EXPECT_TRUE(becomes(State::Absent));
    registry = std::make_unique<Registry>(bus.connect());
    registry->hasHost = true;
    EXPECT_TRUE(becomes(State::Hosted));
}

TEST_F(NotifierWatchTest, takesARegistryThatAnswersNothingForOneWithoutAHost)
{
    Registry registry(bus.connect());
    registry.isBroken = true;
    makeWatch();
    EXPECT_TRUE(becomes(State::Watched));
}

TEST_F(NotifierWatchTest, asksARegistryThatDidNotAnswerAgain)
{
    Registry registry(bus.connect());
    registry.isBroken = true;
    watch = std::make_unique<NotifierWatch>(
        bus.connect(), [] {}, std::chrono::milliseconds(1));
    EXPECT_TRUE(becomes(State::Watched));
    registry.hasHost = true;
    registry.isBroken = false;
    EXPECT_TRUE(becomes(State::Hosted)) << "without a signal";
}

TEST_F(NotifierWatchTest, tellsOfChangesOnly)
{
    Registry registry(bus.connect());
    makeWatch();
    EXPECT_TRUE(becomes(State::Watched));
    const int before = registry.questions;
    registry.setHost(false);
    EXPECT_TRUE(waitUntil([&] { return registry.questions > before; }));
    registry.setHost(true);
    EXPECT_TRUE(becomes(State::Hosted));
    EXPECT_EQ(changes, 2);
}

TEST_F(NotifierWatchTest, asksOnceForManySignals)
{
    Registry registry(bus.connect());
    makeWatch();
    EXPECT_TRUE(becomes(State::Watched));
    const int before = registry.questions;
    for (int signal = 0; signal < 100; ++signal)
        registry.setHost(true);
    EXPECT_TRUE(becomes(State::Hosted));
    EXPECT_LT(registry.questions - before, 20);
}

TEST_F(NotifierWatchTest, mayBeDroppedByWhoeverHearsOfTheChange)
{
    bool isTold = false;
    watch = std::make_unique<NotifierWatch>(bus.connect(), [&] {
        watch.reset();
        isTold = true;
    });
    EXPECT_TRUE(waitUntil([&] { return isTold; }));
}

} // namespace

} // namespace quillbox
