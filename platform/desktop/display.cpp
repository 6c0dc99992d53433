#include "platform/desktop/display.h"

#include <QByteArray>
#include <QDir>
#include <QLibraryInfo>
#include <QList>
#include <QString>
#include <algorithm>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <xcb/xcb.h>

namespace quillbox {

namespace {

bool isConnectable(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0)
        return false;
    const bool isConnected =
        ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(descriptor);
    return isConnected;
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

/// Looks in the same places as libwayland-client.
bool hasWayland()
{
    if (!qEnvironmentVariableIsEmpty("WAYLAND_SOCKET"))
        return true;
    std::string path = qgetenv("WAYLAND_DISPLAY").toStdString();
    if (path.empty())
        path = "wayland-0";
    if (path.front() == '/')
        return isConnectable(path);
    const std::string folder = qgetenv("XDG_RUNTIME_DIR").toStdString();
    return !folder.empty() && isConnectable(folder + '/' + path);
}

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

bool hasDisplay()
{
    return probeDisplay() != Display::None;
}

} // namespace quillbox
