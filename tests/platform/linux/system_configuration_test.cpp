#include "platform/linux/system_configuration.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <thread>

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace quillbox {

namespace {

namespace fs = std::filesystem;
using LocalNames = NameService::LocalNames;

constexpr const char* kWithAvahi = "hosts: files mdns4_minimal [NOTFOUND=return] dns\n";
constexpr const char* kWithResolved = "hosts: files resolve [!UNAVAIL=return] dns\n";

/// The files of a system, in a folder of their own.
class SystemConfiguration : public ::testing::Test {
protected:
    SystemConfiguration()
    {
        std::string pattern = fs::temp_directory_path() / "quillbox-XXXXXX";
        root = ::mkdtemp(pattern.data());
    }
    ~SystemConfiguration() override { fs::remove_all(root); }

    void add(const char* path, const char* text) const
    {
        fs::create_directories((root / path).parent_path());
        std::ofstream(root / path) << text;
    }

    LocalNames localNames() const { return systemNameService(root).localNames(); }

    fs::path root;
};

TEST_F(SystemConfiguration, ofNamesIsTheSystemsOwnUnlessTheAdministratorWroteOne)
{
    EXPECT_EQ(localNames(), LocalNames::Nowhere);
    add("usr/etc/nsswitch.conf", kWithAvahi);
    EXPECT_EQ(localNames(), LocalNames::Avahi);
    add("etc/nsswitch.conf", kWithResolved);
    EXPECT_EQ(localNames(), LocalNames::Resolved);
}

TEST_F(SystemConfiguration, ofNamesIsNotThatOfASandbox)
{
    add("etc/nsswitch.conf", kWithAvahi);
    add(".flatpak-info", "[Application]\n");
    EXPECT_EQ(localNames(), LocalNames::Unknown);
}

TEST_F(SystemConfiguration, ofPackagesIsThatOfTheHostOfASandbox)
{
    EXPECT_EQ(systemPackageManager(root), PackageManager());
    add("usr/lib/os-release", "ID=fedora\n");
    EXPECT_EQ(systemPackageManager(root), PackageManager("ID=fedora"));
    add("etc/os-release", "ID=debian\n");
    EXPECT_EQ(systemPackageManager(root), PackageManager("ID=debian"));
    add(".flatpak-info", "[Application]\n");
    EXPECT_EQ(systemPackageManager(root), PackageManager());
    add("run/host/os-release", "ID=arch\n");
    EXPECT_EQ(systemPackageManager(root), PackageManager("ID=arch"));
}

TEST(NameLookup, findsTheNameOfThisComputerOnly)
{
    EXPECT_TRUE(isNameOfThisComputer("localhost"));
    EXPECT_FALSE(isNameOfThisComputer("no-such-name.invalid"));
    EXPECT_FALSE(isNameOfThisComputer("192.0.2.1"));
}

/// A program that listens on a Unix domain socket, unless this user may not create that.
class Listening final {
public:
    explicit Listening(const fs::path& path)
        : socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        std::error_code error;
        fs::create_directories(path.parent_path(), error);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.native().copy(address.sun_path, sizeof address.sun_path - 1);
        isThere = ::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0
                  && ::listen(socket, 8) == 0;
        if (isThere)
            made = path;
    }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;
    ~Listening()
    {
        ::close(socket);
        std::error_code error;
        fs::remove(made, error);
    }

    bool isThere = false;

private:
    const int socket;
    fs::path made;
};

bool isAsked(const char* configuration)
{
    return isAvahiAskedForNames(NameService(configuration));
}

/// Calls `work` on a thread that sees this text as /etc/nsswitch.conf. Skips the test where that is
/// not permitted.
template <typename Work> void withConfiguration(const char* text, const Work& work)
{
    std::string file = fs::temp_directory_path() / "quillbox-nsswitch-XXXXXX";
    ::close(::mkstemp(file.data()));
    std::ofstream(file) << text;
    bool isPermitted = false;
    std::thread([&] {
        constexpr const char* kConfiguration = "/etc/nsswitch.conf";
        isPermitted = ::unshare(CLONE_NEWNS) == 0
                      && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
                      && ::mount(file.c_str(), kConfiguration, nullptr, MS_BIND, nullptr) == 0;
        if (isPermitted)
            work();
    }).join();
    fs::remove(file);
    if (!isPermitted)
        GTEST_SKIP() << "no permission to mount files";
}

TEST(Avahi, isAskedForNamesIfItRunsAndIsConfigured)
{
    if (isAsked(kWithAvahi))
        GTEST_SKIP() << "avahi-daemon runs here";
    withConfiguration(kWithAvahi, [] { EXPECT_FALSE(isAvahiAskedForNames()); });
    const Listening avahi("/run/avahi-daemon/socket");
    if (!avahi.isThere)
        GTEST_SKIP() << "this user may not create sockets in /run";
    withConfiguration(kWithAvahi, [] { EXPECT_TRUE(isAvahiAskedForNames()); });
    withConfiguration(kWithResolved, [] { EXPECT_FALSE(isAvahiAskedForNames()); });
    EXPECT_TRUE(isAsked(kWithAvahi));
    EXPECT_FALSE(isAsked(kWithResolved));
    EXPECT_FALSE(isAsked("hosts: files dns\n"));
}

TEST(Resolver, runsIfTheProgramListensThatTheConfigurationNames)
{
    EXPECT_FALSE(isResolverRunning(NameService("hosts: files dns\n")));
    EXPECT_FALSE(isResolverRunning(NameService()));
    const NameService resolved(kWithResolved);
    if (isResolverRunning(resolved))
        GTEST_SKIP() << "systemd-resolved runs here";
    const Listening socket("/run/systemd/resolve/io.systemd.Resolve");
    if (!socket.isThere)
        GTEST_SKIP() << "this user may not create sockets in /run";
    EXPECT_TRUE(isResolverRunning(resolved));
}

} // namespace

} // namespace quillbox
