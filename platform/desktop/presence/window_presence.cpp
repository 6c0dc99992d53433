#include "platform/desktop/presence/window_presence.h"

#include <QApplication>
#include <QByteArray>
#include <QWidget>

namespace quillbox {

namespace {

/// Qt takes the activation token from this variable when it activates a window; Qt 6.4 has no API
/// for it. Qt also stores the token there that a panel passes, before it reports the click.
constexpr const char* kPermissionVariable = "XDG_ACTIVATION_TOKEN";

/// Wayland tells a client neither where its windows are nor whether they are minimised, and leaves
/// taskbars to the compositor. A window comes to the front with an activation token (XDG Activation
/// Protocol), or by being hidden and shown again. Without a display that does no harm.
class WaylandPresence final : public WindowPresence {
public:
    bool canOpenMenuAnywhere() const override { return false; }

    void setListed(WindowIdentifier /*window*/, bool /*isListed*/) override {}

    std::string takePermissionOfPanel() override
    {
        std::string permission = qgetenv(kPermissionVariable).toStdString();
        qunsetenv(kPermissionVariable);
        return permission;
    }

    void bringForward(WindowIdentifier window, const std::string& permission,
                      const std::function<void()>& show) override
    {
        // In place of what a panel may have left there.
        qunsetenv(kPermissionVariable);
        if (permission.empty())
            takeOffTheScreen(window);
        else
            qputenv(kPermissionVariable, QByteArray::fromStdString(permission));
        show();
        // A token is valid once, and programs that are started from here must not inherit it.
        qunsetenv(kPermissionVariable);
    }

private:
    /// Without a token a compositor leaves a window where it is, perhaps on another workspace or
    /// minimised, but it shows a newly mapped one. So hides the window first, except under a modal
    /// sheet, which would lose its parent.
    static void takeOffTheScreen(WindowIdentifier window)
    {
        QWidget* widget = QWidget::find(window);
        if (widget && !widget->isActiveWindow() && !QApplication::activeModalWidget())
            widget->hide();
    }
};

} // namespace

std::unique_ptr<WindowPresence> makeWindowPresence()
{
    // Checks the name first: Qt's platform without a display provides this interface too.
    if (QGuiApplication::platformName() == QStringLiteral("xcb")) {
        if (auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>())
            return makeX11Presence(x11->connection());
    }
    return std::make_unique<WaylandPresence>();
}

} // namespace quillbox
