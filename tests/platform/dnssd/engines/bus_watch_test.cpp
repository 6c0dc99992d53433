#include "platform/dnssd/processes/bus_watch.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace quillbox::dnssd {

namespace {

class BusWatchTest : public testing::Test {
protected:
    BusWatchTest() { std::filesystem::create_directories(folder); }
    ~BusWatchTest() override { std::filesystem::remove_all(parent); }

    static void make(const std::filesystem::path& file) { std::ofstream(file) << "x"; }

    const std::filesystem::path parent =
        std::filesystem::path(testing::TempDir()) / ("bus" + std::to_string(::getpid()));
    const std::filesystem::path folder = parent / "dbus";
    const std::filesystem::path socket = folder / "socket";
};

TEST_F(BusWatchTest, seesTheSocketAppearAmongOthers)
{
    BusWatch watch(socket);
    watch.begin();
    make(folder / "other");
    EXPECT_FALSE(watch.hasSocketAppeared());
    make(folder / "another");
    make(socket);
    EXPECT_TRUE(watch.hasSocketAppeared());
    EXPECT_FALSE(watch.hasSocketAppeared()) << "again";
}

TEST_F(BusWatchTest, seesASocketThatIsMovedToItsPlace)
{
    make(parent / "new");
    BusWatch watch(socket);
    watch.begin();
    std::filesystem::rename(parent / "new", socket);
    EXPECT_TRUE(watch.hasSocketAppeared());
}

TEST_F(BusWatchTest, seesTheSocketInAFolderThatAppears)
{
    std::filesystem::remove_all(folder);
    BusWatch watch(socket);
    watch.begin();
    std::filesystem::create_directory(folder);
    EXPECT_TRUE(watch.hasSocketAppeared()) << "the socket may be there already";
    make(socket);
    EXPECT_TRUE(watch.hasSocketAppeared());
}

TEST_F(BusWatchTest, seesNothingOnceItHasEnded)
{
    BusWatch watch(socket);
    watch.begin();
    watch.end();
    make(socket);
    EXPECT_FALSE(watch.hasSocketAppeared());
}

TEST_F(BusWatchTest, watchesTheFirstAddressThatTheEnvironmentNames)
{
    constexpr const char* kName = "DBUS_SYSTEM_BUS_ADDRESS";
    const char* value = std::getenv(kName);
    const std::string before = value == nullptr ? "" : value;
    for (const char* more : {"", ",guid=1", ";unix:path=/nowhere"}) {
        ::setenv(kName, ("unix:path=" + socket.string() + more).c_str(), 1);
        BusWatch watch;
        watch.begin();
        make(socket);
        EXPECT_TRUE(watch.hasSocketAppeared()) << more;
        std::filesystem::remove(socket);
    }
    if (value == nullptr)
        ::unsetenv(kName);
    else
        ::setenv(kName, before.c_str(), 1);
}

} // namespace

} // namespace quillbox::dnssd
