#include "platform/desktop/settings/background_portal.h"

#include "platform/desktop/settings/portal_response.h"

#include <QCoreApplication>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QEventLoop>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>
#include <optional>
#include <string>
#include <utility>

namespace quillbox {

namespace {

constexpr uint kGranted = 0;
constexpr const char* kSubject = "cannot change the start at login: ";
constexpr const char* kInstead = "; use the desktop's own settings";
constexpr QLatin1StringView kRequest("org.freedesktop.portal.Request");

constexpr QLatin1StringView kPortal("org.freedesktop.portal.Desktop");

/// The last part of the request's path: unique within this connection, and that suffices.
constexpr QLatin1StringView kToken("quillbox_autostart");

/// Where the portal will emit the response (documentation of org.freedesktop.portal.Request).
QString requestPath(const QDBusConnection& bus)
{
    QString sender = bus.baseService().mid(1); // without ":"
    sender.replace(u'.', u'_');
    return QStringLiteral("/org/freedesktop/portal/desktop/request/") + sender + u'/' + kToken;
}

QDBusMessage requestFor(Autostart wanted)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        kPortal, QStringLiteral("/org/freedesktop/portal/desktop"),
        QStringLiteral("org.freedesktop.portal.Background"), QStringLiteral("RequestBackground"));
    const QString noParentWindow;
    const QVariantMap options{
        {QStringLiteral("handle_token"), QString(kToken)},
        {QStringLiteral("reason"),
         QStringLiteral("To make your phone appear in the file manager from login on.")},
        {QStringLiteral("autostart"), wanted == Autostart::On},
        {QStringLiteral("commandline"),
         QStringList{QStringLiteral("quillbox-helper"), QStringLiteral("--hidden")}},
        {QStringLiteral("dbus-activatable"), false}};
    call.setArguments({noParentWindow, options});
    return call;
}

AutostartResult resultOf(Autostart wanted, uint response, const QVariantMap& results)
{
    const QVariant autostart = results.value(QStringLiteral("autostart"));
    // The portal also turns the start off if the user allows no work in the background, and then
    // answers as if everything was refused.
    if (wanted == Autostart::Off && autostart.isValid() && !autostart.toBool())
        return {.outcome = AutostartResult::Outcome::Done,
                .text = "Does not start at login any more"};
    if (wanted == Autostart::On && response == kGranted && autostart.toBool())
        return {.outcome = AutostartResult::Outcome::Done, .text = "Starts at login from now on"};
    const char* reason = response == kGranted ? "the desktop does not do it" : "it was refused";
    return {.outcome = AutostartResult::Outcome::Refused,
            .text = std::string(kSubject) + reason + kInstead};
}

AutostartResult failure(const std::string& reason)
{
    return {.outcome = AutostartResult::Outcome::Failed, .text = kSubject + reason + kInstead};
}

/// Whether the portal is there, but has not answered the call.
bool isSilence(const QDBusError& error)
{
    return error.type() == QDBusError::NoReply || error.type() == QDBusError::Timeout
           || error.type() == QDBusError::TimedOut;
}

/// Takes the question from the screen, to which nobody waits for an answer any more.
void withdraw(const QString& path, const QDBusConnection& bus)
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(kPortal, path, kRequest, QStringLiteral("Close"));
    call.setAutoStartService(false);
    bus.send(call);
}

} // namespace

AutostartResult requestAutostart(Autostart wanted, QDBusConnection bus,
                                 std::chrono::milliseconds limit)
{
    if (!bus.isConnected())
        return failure("there is no session bus");
    QEventLoop loop;
    std::optional<AutostartResult> result;
    const auto end = [&](AutostartResult ended) {
        if (!result)
            result = std::move(ended);
        loop.quit();
    };
    PortalResponse receiver([&](uint response, const QVariantMap& results) {
        end(resultOf(wanted, response, results));
    });
    QString path = requestPath(bus);
    const auto listen = [&] {
        bus.connect(kPortal, path, kRequest, QStringLiteral("Response"), &receiver,
                    SLOT(receive(uint, QVariantMap)));
    };
    // Before the call, because the response may arrive before its reply.
    listen();

    QDBusPendingCallWatcher reply(
        bus.asyncCall(requestFor(wanted), static_cast<int>(limit.count())));
    QObject::connect(&reply, &QDBusPendingCallWatcher::finished, &loop, [&] {
        const QDBusPendingReply<QDBusObjectPath> handle = reply;
        if (isSilence(handle.error())) {
            loop.quit();
        } else if (handle.isError()) {
            end(failure("the desktop has no portal for it ("
                        + handle.error().message().toStdString() + ')'));
        } else if (handle.value().path() != path) { // of portals before version 0.9
            path = handle.value().path();
            listen();
        }
    });
    QTimer::singleShot(limit, &loop, &QEventLoop::quit);
    loop.exec();
    if (result)
        return *result;
    withdraw(path, bus);
    return failure("the desktop does not answer");
}

} // namespace quillbox
