#include "platform/desktop/wayland_presence.h"

#include <QApplication>
#include <QByteArray>
#include <QWidget>
#include <utility>

namespace quillbox {

namespace {

/// From where the toolkit takes a permission when it activates a window; Qt 6.4 has no other way
/// in. A panel's permission is there already when its click on a menu arrives.
constexpr const char* kPermissionVariable = "XDG_ACTIVATION_TOKEN";

class WaylandPresence final : public WindowPresence {
public:
    bool isOnCurrentWorkspace(WindowIdentifier /*window*/) const override { return true; }

    void setListed(WindowIdentifier /*window*/, bool /*isListed*/) override {}

    void permit(std::string permission) override { permitted = std::move(permission); }

    void bringForward(WindowIdentifier window, const std::function<void()>& show) override
    {
        if (const auto permission = std::exchange(permitted, {}); !permission.empty())
            qputenv(kPermissionVariable, QByteArray::fromStdString(permission));
        if (!qEnvironmentVariableIsSet(kPermissionVariable))
            takeOffTheScreen(window);
        show();
        // A permission is good for one time, and not for the programs that are started from here.
        qunsetenv(kPermissionVariable);
    }

private:
    /// Without a permission a compositor leaves a window where it is, which may be on another
    /// workspace or minimised. One that opens anew is shown. A sheet would lose its window.
    static void takeOffTheScreen(WindowIdentifier window)
    {
        QWidget* widget = QWidget::find(window);
        if (widget && !widget->isActiveWindow() && !QApplication::activeModalWidget())
            widget->hide();
    }

    std::string permitted;
};

} // namespace

std::unique_ptr<WindowPresence> makeWaylandPresence()
{
    return std::make_unique<WaylandPresence>();
}

} // namespace quillbox
