#include "platform/diagnosis/desktop_probes.h"
#include "tests/platform/desktop/qt_support.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <chrono>
#include <future>
#include <map>
#include <string>

#include <gtest/gtest.h>

namespace quillbox::diagnosis {

namespace {

using State = AvahiFacts::State;

constexpr std::chrono::milliseconds kLimit{20'000};

/// Answers calls by the name of the method; an error for a method without an answer.
class Answers final : public QDBusVirtualObject {
public:
    QString introspect(const QString& /*path*/) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        const auto found = byMethod.find(message.member());
        if (!nameToLeave.isEmpty())
            QDBusConnection(connection).unregisterService(nameToLeave);
        connection.send(found == byMethod.end()
                            ? message.createErrorReply(QStringLiteral("org.example.No"), {})
                            : message.createReply(found->second));
        return true;
    }

    std::map<QString, QVariant> byMethod;
    QString nameToLeave; ///< given up before the first answer
};

/// The folder of the bus. One for all tests, because libdbus reads the addresses of the system's
/// and the session's bus once in a process.
const QTemporaryDir& folder()
{
    static const QTemporaryDir made;
    return made;
}

class BusProbes : public ::testing::Test {
protected:
    BusProbes()
    {
        const QByteArray address = "unix:path=" + folder().path().toUtf8() + "/bus";
        environment.set("DBUS_SYSTEM_BUS_ADDRESS", address);
        environment.set("DBUS_SESSION_BUS_ADDRESS", address);
    }

    ~BusProbes() override
    {
        QDBusConnection::disconnectFromBus(QStringLiteral("service"));
        bus.kill();
        bus.waitForFinished();
    }

    /// Starts the bus, which can start `activatable` with a program that never answers. `policy` is
    /// what its configuration forbids.
    void startBus(const char* activatable = "org.example.Other", const char* policy = "")
    {
        const auto write = [](const QString& name, const QString& text) {
            QFile file(folder().filePath(name));
            ASSERT_TRUE(file.open(QIODevice::WriteOnly));
            file.write(text.toUtf8());
        };
        write(QStringLiteral("test.service"),
              QStringLiteral("[D-BUS Service]\nName=%1\nExec=/bin/sh -c \"touch %2/started\"\n")
                  .arg(QLatin1String(activatable), folder().path()));
        write(QStringLiteral("bus.conf"),
              QStringLiteral("<busconfig><type>session</type><listen>unix:path=%1/bus</listen>"
                             "<servicedir>%1</servicedir><policy context=\"default\">"
                             "<allow send_destination=\"*\" eavesdrop=\"true\"/>"
                             "<allow eavesdrop=\"true\"/><allow own=\"*\"/>%2</policy>"
                             "</busconfig>")
                  .arg(folder().path(), QLatin1String(policy)));
        bus.setStandardErrorFile(QProcess::nullDevice());
        bus.start(QStringLiteral("dbus-daemon"),
                  {QStringLiteral("--config-file=") + folder().filePath(QStringLiteral("bus.conf")),
                   QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
        while (!bus.canReadLine())
            ASSERT_TRUE(bus.waitForReadyRead());
    }

    /// Offers the answers on the bus under that name.
    void serve(const char* name)
    {
        startBus(name);
        auto connection = QDBusConnection::connectToBus(
            QStringLiteral("unix:path=%1/bus").arg(folder().path()), QStringLiteral("service"));
        ASSERT_TRUE(connection.registerVirtualObject(QStringLiteral("/"), &answers,
                                                     QDBusConnection::SubPath));
        ASSERT_TRUE(connection.registerService(QLatin1String(name)));
    }

    /// Runs a probe on another thread, because it waits for answers that come from here.
    template <typename Probe> static auto result(const Probe& probe)
    {
        auto running = std::async(std::launch::async, [&probe] { return probe(kLimit); });
        while (running.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready)
            QCoreApplication::processEvents();
        return running.get();
    }

    State avahiState(int state)
    {
        answers.byMethod[QStringLiteral("GetState")] = state;
        return result(probeAvahi).state;
    }

    Environment environment;
    QProcess bus;
    Answers answers;
};

TEST_F(BusProbes, knowThatThereIsNoBus)
{
    EXPECT_EQ(result(probeAvahi).state, State::NoBus);
    EXPECT_EQ(result(probeFirewalld), Seen::No);
    EXPECT_EQ(result(probeStatusPanel), Seen::No);
}

TEST_F(BusProbes, knowThatNobodyIsThereAndStartNobody)
{
    startBus("org.freedesktop.Avahi");
    EXPECT_EQ(result(probeAvahi).state, State::Absent);
    EXPECT_EQ(result(probeFirewalld), Seen::No);
    EXPECT_EQ(result(probeStatusPanel), Seen::No);
    EXPECT_FALSE(QFile::exists(folder().filePath(QStringLiteral("started"))));
}

TEST_F(BusProbes, startNobodyWhoEndsMeanwhile)
{
    serve("org.freedesktop.Avahi");
    answers.nameToLeave = QStringLiteral("org.freedesktop.Avahi");
    EXPECT_EQ(avahiState(2), State::Running);
    EXPECT_FALSE(QFile::exists(folder().filePath(QStringLiteral("started"))));
}

TEST_F(BusProbes, knowNothingOfABusThatDoesNotSayWhoIsThere)
{
    startBus("org.example.Other",
             "<deny send_destination=\"org.freedesktop.DBus\" send_member=\"NameHasOwner\" "
             "send_interface=\"org.freedesktop.DBus\"/>");
    EXPECT_EQ(result(probeAvahi).state, State::Unknown);
    EXPECT_EQ(result(probeFirewalld), Seen::Unknown);
    EXPECT_EQ(result(probeStatusPanel), Seen::Unknown);
}

TEST_F(BusProbes, readWhatAvahiSaysOfItself)
{
    serve("org.freedesktop.Avahi");
    EXPECT_EQ(result(probeAvahi).state, State::Unknown) << "it does not answer";
    answers.byMethod[QStringLiteral("GetVersionString")] = QStringLiteral("avahi 0.8");
    answers.byMethod[QStringLiteral("GetHostNameFqdn")] = QStringLiteral("office.local");
    EXPECT_EQ(avahiState(2), State::Running);
    EXPECT_EQ(result(probeAvahi).version, "avahi 0.8");
    EXPECT_EQ(result(probeAvahi).hostName, "office.local");
    EXPECT_EQ(avahiState(1), State::Registering);
    EXPECT_EQ(avahiState(3), State::Registering);
    EXPECT_EQ(avahiState(4), State::Failed);
    EXPECT_EQ(avahiState(0), State::Failed);
}

TEST_F(BusProbes, seeFirewalld)
{
    serve("org.fedoraproject.FirewallD1");
    EXPECT_EQ(result(probeFirewalld), Seen::Yes);
}

TEST_F(BusProbes, askTheRegistryOfPanelsWhetherThereIsAPanel)
{
    serve("org.kde.StatusNotifierWatcher");
    EXPECT_EQ(result(probeStatusPanel), Seen::Unknown) << "it does not answer";
    auto& property = answers.byMethod[QStringLiteral("Get")];
    property = QVariant::fromValue(QDBusVariant(true));
    EXPECT_EQ(result(probeStatusPanel), Seen::Yes);
    property = QVariant::fromValue(QDBusVariant(false));
    EXPECT_EQ(result(probeStatusPanel), Seen::No);
}

} // namespace

} // namespace quillbox::diagnosis
