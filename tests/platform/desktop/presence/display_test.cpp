#include "platform/desktop/instances/registration.h"
#include "platform/desktop/presence/display.h"
#include "tests/platform/desktop/qt_support.h"

#include <QFile>
#include <QLibraryInfo>
#include <QTemporaryDir>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

class DisplayProbe : public ::testing::Test {
protected:
    DisplayProbe()
    {
        for (const char* name : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY", "WAYLAND_SOCKET"})
            environment.set(name, {});
        environment.set("XDG_RUNTIME_DIR", folder.path().toUtf8());
    }

    FileDescriptor compositorAt(const char* name)
    {
        const FileDescriptor open(::open(QFile::encodeName(folder.path()).constData(),
                                         O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        return listenAt(open.get(), name);
    }

    QTemporaryDir folder;
    Environment environment;
};

TEST_F(DisplayProbe, findsNoneWhereNothingAnswers)
{
    EXPECT_EQ(probeDisplay(), Display::None);
    environment.set("DISPLAY", ":987");
    environment.set("WAYLAND_DISPLAY", "wayland-0");
    EXPECT_EQ(probeDisplay(), Display::None);
    environment.set("XDG_RUNTIME_DIR", {});
    EXPECT_EQ(probeDisplay(), Display::None);
}

TEST_F(DisplayProbe, findsACompositor)
{
    const FileDescriptor standard = compositorAt("wayland-0");
    EXPECT_EQ(probeDisplay(), Display::Wayland);
    environment.set("WAYLAND_DISPLAY", "wayland-7");
    EXPECT_EQ(probeDisplay(), Display::None);
    const FileDescriptor named = compositorAt("wayland-7");
    EXPECT_EQ(probeDisplay(), Display::Wayland);
    environment.set("WAYLAND_DISPLAY", (folder.path() + QStringLiteral("/wayland-7")).toUtf8());
    environment.set("XDG_RUNTIME_DIR", {});
    EXPECT_EQ(probeDisplay(), Display::Wayland);
}

TEST_F(DisplayProbe, findsACompositorThatIsBusyWithOtherClients)
{
    const FileDescriptor compositor = compositorAt("wayland-0");
    // One client waits, and there is no place for another.
    ASSERT_EQ(::listen(compositor.get(), 0), 0);
    EXPECT_EQ(probeDisplay(), Display::Wayland);
    EXPECT_EQ(probeDisplay(), Display::Wayland);
}

TEST_F(DisplayProbe, findsNoCompositorForWhichQtHasNoPlugin)
{
    const FileDescriptor compositor = compositorAt("wayland-0");
    const QByteArray plugins = QFile::encodeName(QLibraryInfo::path(QLibraryInfo::PluginsPath)
                                                 + QStringLiteral("/platforms"));
    bool isPermitted = false;
    Display found = Display::Any;
    // A thread that sees an empty folder of plugins.
    std::thread([&] {
        isPermitted = ::unshare(CLONE_NEWNS) == 0
                      && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
                      && ::mount("none", plugins.constData(), "tmpfs", 0, nullptr) == 0;
        if (isPermitted)
            found = probeDisplay();
    }).join();
    if (!isPermitted)
        GTEST_SKIP() << "no permission to mount";
    EXPECT_EQ(found, Display::None);
}

TEST_F(DisplayProbe, isNotDeceivedByWhatADeadCompositorLeft)
{
    compositorAt("wayland-0").reset();
    EXPECT_EQ(probeDisplay(), Display::None);
}

TEST_F(DisplayProbe, respectsThePlatformThatIsAskedFor)
{
    const FileDescriptor compositor = compositorAt("wayland-0");
    for (const char* without : {"offscreen", "minimal", "xcb", "xcb;offscreen"}) {
        environment.set("QT_QPA_PLATFORM", without);
        EXPECT_EQ(probeDisplay(), Display::None) << without;
    }
    for (const char* with : {"wayland", "wayland-egl", "xcb;wayland", "vnc:port=5901", "eglfs"}) {
        environment.set("QT_QPA_PLATFORM", with);
        EXPECT_EQ(probeDisplay(), Display::Any) << with;
    }
}

} // namespace

} // namespace quillbox
