#pragma once

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QTimer>
#include <chrono>
#include <functional>
#include <memory>

namespace quillbox {

/// Watches over D-Bus whether a panel of the desktop shows StatusNotifierItems. Never blocks.
class NotifierWatch final {
public:
    enum class State {
        Unknown, ///< no answer yet
        Absent,  ///< there is no StatusNotifierWatcher
        Watched, ///< there is a StatusNotifierWatcher, but no host (panel) has registered
        Hosted,
    };

    /// `stateChanged` is called from the event loop only. It may destroy this object. A
    /// StatusNotifierWatcher that did not answer is asked again after the pause.
    NotifierWatch(QDBusConnection bus, std::function<void()> stateChanged,
                  std::chrono::milliseconds pauseAfterSilence = std::chrono::seconds(5));

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
