#include "platform/desktop/presence/activation_tokens.h"

#include "platform/x11/x11.h"

#include <QGuiApplication>
#include <QSysInfo>

namespace quillbox {

namespace {

/// A token on X11 is an identifier of the launch that ends in the time of the user's action
/// (Startup Notification Protocol of freedesktop.org). Window managers let a window come to the
/// front if that time is later than that of the last input to the active window.
class X11Tokens final : public ActivationTokens {
public:
    /// Without the permission: shells pass the token on with which their terminal was started, and
    /// its time is that of a long gone action.
    void request(const std::string& /*permission*/, Given given) override
    {
        const auto now = x11::serverTime();
        if (now == 0)
            return given({});
        given("quillbox-helper-" + std::to_string(QCoreApplication::applicationPid()) + '-'
              + QSysInfo::machineHostName().toStdString() + '-' + std::to_string(++lastNumber)
              + "_TIME" + std::to_string(now));
    }

private:
    unsigned lastNumber = 0;
};

} // namespace

std::unique_ptr<ActivationTokens> makeActivationTokens()
{
    return QGuiApplication::platformName() == QStringLiteral("xcb") ? makeX11Tokens()
                                                                    : makeWaylandTokens();
}

std::unique_ptr<ActivationTokens> makeX11Tokens()
{
    return std::make_unique<X11Tokens>();
}

} // namespace quillbox
