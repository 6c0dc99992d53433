#include "platform/desktop/presence/display.h"

#include "platform/posix/local_listener.h"

#include <QByteArray>
#include <QDir>
#include <QLibraryInfo>
#include <QList>
#include <QString>
#include <algorithm>
#include <string>

#include <xcb/xcb.h>

namespace quillbox {

namespace {

/// Whether a Wayland compositor is running: looks in the same places as libwayland-client.
bool hasWayland()
{
    if (!qEnvironmentVariableIsEmpty("WAYLAND_SOCKET"))
        return true;
    std::string path = qgetenv("WAYLAND_DISPLAY").toStdString();
    if (path.empty())
        path = "wayland-0";
    if (path.front() == '/')
        return isListening(path);
    const std::string folder = qgetenv("XDG_RUNTIME_DIR").toStdString();
    return !folder.empty() && isListening(folder + '/' + path);
}

bool isWaylandPluginThere()
{
    const QDir folder(QLibraryInfo::path(QLibraryInfo::PluginsPath) + QStringLiteral("/platforms"));
    return !folder.entryList({QStringLiteral("libqwayland*.so")}, QDir::Files).isEmpty();
}

/// Connecting is the only test that also covers a refusal by the server's access control.
bool isXThere()
{
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        return false;
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    const bool isConnected = xcb_connection_has_error(connection) == 0;
    xcb_disconnect(connection);
    return isConnected;
}

/// `platform` is one entry of QT_QPA_PLATFORM: a name, optionally with arguments after a colon.
bool isUsable(const QByteArray& platform)
{
    const QByteArray name = platform.split(':').constFirst().trimmed();
    if (name == "offscreen" || name == "minimal")
        return false;
    if (name == "xcb")
        return isXThere();
    if (name.startsWith("wayland"))
        return hasWayland();
    return true; // Cannot be probed: assume that the user who chose it knows that it works.
}

} // namespace

Display probeDisplay()
{
    const QByteArray asked = qgetenv("QT_QPA_PLATFORM");
    if (!asked.isEmpty()) {
        const QList<QByteArray> platforms = asked.split(';');
        return std::any_of(platforms.begin(), platforms.end(), isUsable) ? Display::Any
                                                                         : Display::None;
    }
    if (isXThere())
        return Display::Any;
    return hasWayland() && isWaylandPluginThere() ? Display::Wayland : Display::None;
}

} // namespace quillbox
