#include "platform/desktop/presence/status_host_watch.h"
#include "tests/platform/desktop/event_wait.h"
#include "tests/platform/desktop/x_server.h"

#include <QEventLoop>
#include <memory>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

class TrayManagerWatchTest : public ::testing::Test {
protected:
    bool becomes(bool hasManager)
    {
        return waitUntil([&] { return watch->hasManager() == hasManager; });
    }

    void makeWatch()
    {
        watch = std::make_unique<TrayManagerWatch>([this] { ++changes; });
    }

    XServer server;
    std::unique_ptr<TrayManagerWatch> watch;
    int changes = 0;
};

TEST_F(TrayManagerWatchTest, findsAManagerThatIsThere)
{
    const TrayManager manager;
    makeWatch();
    EXPECT_TRUE(watch->hasManager());
    EXPECT_EQ(changes, 0);
}

TEST_F(TrayManagerWatchTest, hearsOfAManagerThatComesGoesAndComesBack)
{
    makeWatch();
    EXPECT_FALSE(watch->hasManager());
    auto manager = std::make_unique<TrayManager>();
    EXPECT_TRUE(becomes(true));
    manager.reset();
    EXPECT_TRUE(becomes(false));
    manager = std::make_unique<TrayManager>();
    EXPECT_TRUE(becomes(true));
    EXPECT_EQ(changes, 3);
}

TEST_F(TrayManagerWatchTest, staysWithTheManagerThatTakesOver)
{
    auto first = std::make_unique<TrayManager>();
    makeWatch();
    const TrayManager second;
    first.reset();
    auto third = std::make_unique<TrayManager>();
    third.reset();
    EXPECT_TRUE(becomes(false)) << "the last one took the selection away";
}

TEST_F(TrayManagerWatchTest, knowsNoManagerOnceTheDisplayIsGone)
{
    const TrayManager manager;
    makeWatch();
    server.end();
    EXPECT_TRUE(becomes(false));
    EXPECT_EQ(changes, 1);
    int busyTurns = 0;
    for (int turn = 0; turn < 100; ++turn)
        busyTurns += QEventLoop().processEvents() ? 1 : 0;
    EXPECT_LT(busyTurns, 50) << "the end of the connection remains readable";
}

TEST_F(TrayManagerWatchTest, mayBeDroppedByWhoeverHearsOfTheChange)
{
    bool isTold = false;
    watch = std::make_unique<TrayManagerWatch>([&] {
        watch.reset();
        isTold = true;
    });
    const TrayManager manager;
    EXPECT_TRUE(waitUntil([&] { return isTold; }));
}

TEST_F(TrayManagerWatchTest, knowsNoManagerWithoutADisplay)
{
    qputenv("DISPLAY", ":none");
    makeWatch();
    EXPECT_FALSE(watch->hasManager());
}

} // namespace

} // namespace quillbox
