#include "platform/desktop/presence/status_host_watch.h"

#include <QDBusMessage>
#include <QDBusVariant>
#include <chrono>
#include <utility>

namespace quillbox {

namespace {

constexpr QLatin1StringView kService("org.kde.StatusNotifierWatcher");
constexpr QLatin1StringView kPath("/StatusNotifierWatcher");
constexpr int kAnswerLimitMilliseconds = 5000;
constexpr std::chrono::milliseconds kPauseAfterSignal{20};

} // namespace

NotifierWatch::NotifierWatch(QDBusConnection bus, std::function<void()> stateChanged,
                             std::chrono::milliseconds pauseAfterSilence)
    : connection(std::move(bus)),
      changed(std::move(stateChanged)),
      owners(kService, connection, QDBusServiceWatcher::WatchForOwnerChange)
{
    if (!connection.isConnected()) {
        current = State::Absent;
        return;
    }
    askSoon.setSingleShot(true);
    askSoon.setInterval(kPauseAfterSignal);
    askAgain.setSingleShot(true);
    askAgain.setInterval(pauseAfterSilence);
    for (QTimer* timer : {&askSoon, &askAgain})
        QObject::connect(timer, &QTimer::timeout, timer, [this] { ask(); });
    QObject::connect(&owners, &QDBusServiceWatcher::serviceOwnerChanged, &askSoon,
                     qOverload<>(&QTimer::start));
    // From any sender: given a name, QtDBus would block to look up its owner. The timer coalesces
    // signals that arrive together into one query.
    for (const char* signal : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"})
        connection.connect(QString(), kPath, kService, QLatin1String(signal), &askSoon,
                           SLOT(start()));
    ask();
}

void NotifierWatch::ask()
{
    QDBusMessage get = QDBusMessage::createMethodCall(
        kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get.setArguments({QString(kService), QStringLiteral("IsStatusNotifierHostRegistered")});
    get.setAutoStartService(false);
    question = std::make_unique<QDBusPendingCallWatcher>(
        connection.asyncCall(get, kAnswerLimitMilliseconds));
    QObject::connect(question.get(), &QDBusPendingCallWatcher::finished, &askSoon,
                     [this](QDBusPendingCallWatcher* watcher) {
                         // The watcher is emitting this signal: destroy it later.
                         question.release()->deleteLater();
                         answered(watcher->reply());
                     });
}

void NotifierWatch::answered(const QDBusMessage& answer)
{
    if (answer.type() == QDBusMessage::ReplyMessage && !answer.arguments().isEmpty()) {
        const auto value = answer.arguments().constFirst().value<QDBusVariant>().variant();
        change(value.toBool() ? State::Hosted : State::Watched);
        return;
    }
    const QString error = answer.errorName();
    if (error == QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner")
        || error == QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown")
        || error == QStringLiteral("org.freedesktop.DBus.Error.Disconnected")) {
        change(State::Absent);
        return;
    }
    // The service is stuck, or exited during the call. The signal for its successor may have been
    // handled already, so query again.
    askAgain.start();
    change(State::Watched);
}

void NotifierWatch::change(State state)
{
    if (std::exchange(current, state) == state)
        return;
    // A copy: the handler may destroy this object.
    const auto handler = changed;
    handler();
}

} // namespace quillbox
