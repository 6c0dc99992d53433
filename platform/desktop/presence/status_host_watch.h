#pragma once

#include "platform/status_host.h"
#include "platform/x11/x11.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QSocketNotifier>
#include <QTimer>
#include <chrono>
#include <cstdint>
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

/// Watches whether a system tray runs on the X display of this process (System Tray Protocol of
/// freedesktop.org: the owner of the selection _NET_SYSTEM_TRAY_Sn). Uses its own connection, so
/// that it does not affect the events that Qt receives.
class TrayManagerWatch final {
public:
    /// `managerChanged` is called from the event loop only. It may destroy this object.
    explicit TrayManagerWatch(std::function<void()> managerChanged);

    TrayManagerWatch(const TrayManagerWatch&) = delete;
    TrayManagerWatch& operator=(const TrayManagerWatch&) = delete;
    ~TrayManagerWatch();

    /// False without an X display.
    bool hasManager() const { return manager != 0; }

private:
    void find();
    std::uint32_t owner() const;
    bool watch(std::uint32_t window) const;
    bool takeEvents();
    void readEvents();

    std::function<void()> changed;
    x11::Connection connection;
    std::unique_ptr<QSocketNotifier> notifier;
    std::uint32_t selection = 0;
    std::uint32_t manager = 0; ///< the manager's window; 0 if there is none
};

/// Watches for the two kinds of host in which Qt can show a status item: a panel that speaks the
/// StatusNotifierItem protocol on the session bus, and, on X, a system tray.
///
/// Qt chooses between the two once, when it creates its first item. So while the session bus has a
/// StatusNotifierWatcher, a tray alone does not count as available until no panel has registered
/// with the watcher for as long as `patience`.
///
/// On the main thread, after the application object has been constructed.
std::unique_ptr<StatusHost>
makeStatusHostWatch(std::chrono::milliseconds patience = std::chrono::seconds(10));

} // namespace quillbox
