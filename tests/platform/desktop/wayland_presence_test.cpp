#include "platform/desktop/wayland_presence.h"
#include "tests/platform/desktop/qt_support.h"

#include <QByteArray>
#include <memory>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

constexpr const char* kVariable = "XDG_ACTIVATION_TOKEN";
constexpr WindowPresence::WindowIdentifier kNoWindow = 0;

class WaylandPresenceTest : public ::testing::Test {
protected:
    WaylandPresenceTest() { environment.set(kVariable, {}); }

    /// The activation token that is in the environment when the toolkit shows the window.
    QByteArray permissionSeen()
    {
        QByteArray seen = "the window is not shown";
        presence->bringForward(kNoWindow, [&seen] { seen = qgetenv(kVariable); });
        return seen;
    }

    Environment environment;
    const std::unique_ptr<WindowPresence> presence = makeWaylandPresence();
};

TEST_F(WaylandPresenceTest, givesTheToolkitAPermissionOnce)
{
    presence->permit("token");
    EXPECT_EQ(permissionSeen(), "token");
    EXPECT_EQ(permissionSeen(), "");
    EXPECT_FALSE(qEnvironmentVariableIsSet(kVariable));
}

TEST_F(WaylandPresenceTest, leavesThePermissionThatAPanelGaveToTheToolkit)
{
    qputenv(kVariable, "panel");
    EXPECT_EQ(permissionSeen(), "panel");
    EXPECT_EQ(permissionSeen(), "");
}

TEST_F(WaylandPresenceTest, comesForwardWithoutAPermission)
{
    presence->permit("");
    EXPECT_EQ(permissionSeen(), "");
}

} // namespace

} // namespace quillbox
