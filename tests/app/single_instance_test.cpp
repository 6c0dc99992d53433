#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <csignal>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

constexpr int kCopies = 20;
constexpr int kPatience = 30'000; // milliseconds, for a machine under load

/// Processes of the helper that compete to be the only running one.
class SingleInstance : public ::testing::Test {
protected:
    ~SingleInstance() override
    {
        for (const auto& copy : copies) {
            copy->kill();
            copy->waitForFinished(kPatience);
        }
    }

    /// Starts a copy, which waits for `launch`.
    QProcess& prepare()
    {
        auto copy = std::make_unique<QProcess>();
        copy->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        copy->start(QStringLiteral(RACING_COPY), {folder.path()});
        EXPECT_EQ(lineFrom(*copy), QStringLiteral("waits"));
        copies.push_back(std::move(copy));
        return *copies.back();
    }

    static void launch(QProcess& copy)
    {
        copy.write("go\n");
        copy.waitForBytesWritten(kPatience);
    }

    /// The next line that the copy prints; empty if it exits instead.
    static QString lineFrom(QProcess& copy)
    {
        QElapsedTimer timer;
        timer.start();
        while (!copy.canReadLine() && timer.elapsed() < kPatience) {
            if (!copy.waitForReadyRead(kPatience))
                break;
        }
        return QString::fromUtf8(copy.readLine()).trimmed();
    }

    static QString launchAndAsk(QProcess& copy)
    {
        launch(copy);
        return lineFrom(copy);
    }

    int filesLeft() const
    {
        const QDir registrations(folder.filePath(QStringLiteral("org.example.Racing")));
        return static_cast<int>(
            registrations.entryList({QStringLiteral("*.socket")}, QDir::System).size());
    }

    QTemporaryDir folder;
    std::vector<std::unique_ptr<QProcess>> copies;
};

TEST_F(SingleInstance, ofTwentyCopiesStartedAtOnceOneStays)
{
    for (int count = 0; count < kCopies; ++count)
        prepare();
    for (const auto& copy : copies)
        copy->write("go\n");
    for (const auto& copy : copies)
        copy->waitForBytesWritten(kPatience);

    int staying = 0;
    for (const auto& copy : copies) {
        const QString verdict = lineFrom(*copy);
        if (verdict == QStringLiteral("stays")) {
            ++staying;
            continue;
        }
        EXPECT_EQ(verdict, QStringLiteral("yields"));
        EXPECT_TRUE(copy->waitForFinished(kPatience));
        EXPECT_EQ(copy->exitCode(), 0);
    }
    EXPECT_EQ(staying, 1);
    EXPECT_EQ(filesLeft(), 1);
}

TEST_F(SingleInstance, aSecondCopyBringsTheFirstForward)
{
    QProcess& first = prepare();
    ASSERT_EQ(launchAndAsk(first), QStringLiteral("stays"));
    EXPECT_EQ(launchAndAsk(prepare()), QStringLiteral("yields"));
    EXPECT_EQ(lineFrom(first), QStringLiteral("comes forward"));
}

TEST_F(SingleInstance, aKilledCopyStandsInNobodysWay)
{
    QProcess& first = prepare();
    ASSERT_EQ(launchAndAsk(first), QStringLiteral("stays"));
    first.kill();
    ASSERT_TRUE(first.waitForFinished(kPatience));
    EXPECT_EQ(filesLeft(), 1);
    EXPECT_EQ(launchAndAsk(prepare()), QStringLiteral("stays"));
    EXPECT_EQ(filesLeft(), 1);
}

TEST_F(SingleInstance, aCopyThatHasEndedStandsInNobodysWay)
{
    QProcess& first = prepare();
    ASSERT_EQ(launchAndAsk(first), QStringLiteral("stays"));
    first.closeWriteChannel();
    ASSERT_TRUE(first.waitForFinished(kPatience));
    EXPECT_EQ(filesLeft(), 0);
    EXPECT_EQ(launchAndAsk(prepare()), QStringLiteral("stays"));
}

TEST_F(SingleInstance, aCopyThatIsStuckIsYieldedToWithinASecondOrTwo)
{
    QProcess& first = prepare();
    ASSERT_EQ(launchAndAsk(first), QStringLiteral("stays"));
    ::kill(static_cast<pid_t>(first.processId()), SIGSTOP);
    QElapsedTimer timer;
    QProcess& second = prepare();
    timer.start();
    EXPECT_EQ(launchAndAsk(second), QStringLiteral("yields"));
    EXPECT_LT(timer.elapsed(), 3000);
}

} // namespace

} // namespace quillbox
