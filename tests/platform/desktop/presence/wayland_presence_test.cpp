#include "platform/desktop/presence/window_presence.h"
#include "tests/platform/desktop/qt_support.h"

#include <QApplication>
#include <QByteArray>
#include <QDialog>
#include <QWidget>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

constexpr const char* kVariable = "XDG_ACTIVATION_TOKEN";
constexpr WindowPresence::WindowIdentifier kNoWindow = 0;

class WaylandPresenceTest : public ::testing::Test {
protected:
    WaylandPresenceTest() { environment.set(kVariable, {}); }

    /// The activation token that is in the environment when the toolkit shows the window.
    QByteArray permissionSeen(const std::string& permission = {})
    {
        QByteArray seen = "the window is not shown";
        presence->bringForward(kNoWindow, permission, [&seen] { seen = qgetenv(kVariable); });
        return seen;
    }

    Environment environment;
    const std::unique_ptr<WindowPresence> presence = makeWindowPresence();
};

TEST_F(WaylandPresenceTest, givesTheToolkitAPermissionOnce)
{
    EXPECT_EQ(permissionSeen("token"), "token");
    EXPECT_FALSE(qEnvironmentVariableIsSet(kVariable)) << "programs would inherit it";
    EXPECT_EQ(permissionSeen(), "");
    EXPECT_FALSE(qEnvironmentVariableIsSet(kVariable));
}

TEST_F(WaylandPresenceTest, takesThePermissionThatAPanelGave)
{
    qputenv(kVariable, "panel");
    EXPECT_EQ(presence->takePermissionOfPanel(), "panel");
    EXPECT_EQ(presence->takePermissionOfPanel(), "");
    EXPECT_FALSE(qEnvironmentVariableIsSet(kVariable));
}

TEST_F(WaylandPresenceTest, comesForwardWithoutThePermissionThatAPanelGaveForSomethingElse)
{
    qputenv(kVariable, "panel");
    EXPECT_EQ(permissionSeen(), "");
    qputenv(kVariable, "panel");
    EXPECT_EQ(permissionSeen("token"), "token");
}

/// A window that is shown without a token, which compositors leave where it is unless it is newly
/// mapped.
class WaylandWindow : public WaylandPresenceTest {
protected:
    WaylandWindow()
    {
        window.show();
        other.show();
    }

    /// Whether the window is off the screen when the toolkit shows it.
    bool isTakenOffTheScreen(const std::string& permission = {})
    {
        bool isHidden = false;
        presence->bringForward(window.winId(), permission, [&] {
            isHidden = window.isHidden();
            window.show();
        });
        return isHidden;
    }

    static void makeActive(QWidget& widget)
    {
        widget.activateWindow();
        ASSERT_TRUE(runUntil([&widget] { return widget.isActiveWindow(); }));
    }

    QWidget window;
    QWidget other;
};

TEST_F(WaylandWindow, isMappedAgainWithoutAPermission)
{
    makeActive(other);
    EXPECT_TRUE(isTakenOffTheScreen());
    EXPECT_TRUE(window.isVisible());
}

TEST_F(WaylandWindow, staysWhereItIsWithAPermission)
{
    makeActive(other);
    EXPECT_FALSE(isTakenOffTheScreen("token"));
}

TEST_F(WaylandWindow, staysWhereItIsWhileItIsActive)
{
    makeActive(window);
    EXPECT_FALSE(isTakenOffTheScreen());
}

TEST_F(WaylandWindow, staysWhereItIsUnderAModalSheet)
{
    QDialog sheet(&window);
    sheet.setModal(true);
    sheet.show();
    makeActive(other);
    ASSERT_EQ(QApplication::activeModalWidget(), &sheet);
    EXPECT_FALSE(isTakenOffTheScreen());
}

TEST_F(WaylandPresenceTest, leavesTheRestToTheCompositor)
{
    EXPECT_FALSE(presence->canOpenMenuAnywhere());
}

} // namespace

} // namespace quillbox
