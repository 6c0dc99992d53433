#include "platform/desktop/presence/window_presence.h"

#include <QApplication>
#include <QByteArray>
#include <QWidget>

namespace quillbox {

namespace {

/// Qt takes the activation token from this variable when it activates a window; Qt 6.4 has no API
/// for it. Qt also stores the token there that a panel passes, before it reports the click.
constexpr const char* kPermissionVariable = "XDG_ACTIVATION_TOKEN";

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

std::unique_ptr<WindowPresence> makeWaylandPresence()
{
    return std::make_unique<WaylandPresence>();
}

} // namespace quillbox
