#include "platform/desktop/presence/window_presence.h"

#include <QGuiApplication>

namespace quillbox {

namespace {

/// For a platform without a display.
class NoPresence final : public WindowPresence {
public:
    bool canOpenMenuAnywhere() const override { return false; }
    void setListed(WindowIdentifier /*window*/, bool /*isListed*/) override {}
    std::string takePermissionOfPanel() override { return {}; }
    void bringForward(WindowIdentifier /*window*/, const std::string& /*permission*/,
                      const std::function<void()>& show) override
    {
        show();
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
    if (QGuiApplication::platformName().startsWith(QStringLiteral("wayland")))
        return makeWaylandPresence();
    return std::make_unique<NoPresence>();
}

} // namespace quillbox
