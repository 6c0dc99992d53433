#pragma once

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QTimer>
#include <functional>
#include <memory>

namespace quillbox {

/// Watches whether a panel of the desktop shows status notifier items, over D-Bus and without ever
/// waiting for an answer.
class NotifierWatch final {
public:
    enum class State {
        Unknown, ///< not answered yet
        Absent,
        Watched, ///< there is a registry of items, but nobody yet who shows them
        Hosted,
    };

    /// `stateChanged` is called from the event loop only. It may drop the watch.
    NotifierWatch(QDBusConnection bus, std::function<void()> stateChanged);

    NotifierWatch(const NotifierWatch&) = delete;
    NotifierWatch& operator=(const NotifierWatch&) = delete;
    ~NotifierWatch() = default;

    State state() const { return current; }

private:
    void ask();
    void answered(const QDBusMessage& answer);
    void change(State state);

    QDBusConnection connection;
    std::function<void()> changed;
    State current = State::Unknown;
    QDBusServiceWatcher owners;
    QTimer askSoon;
    QTimer askAgain;
    std::unique_ptr<QDBusPendingCallWatcher> question;
};

} // namespace quillbox
