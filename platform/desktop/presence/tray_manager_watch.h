#pragma once

#include "platform/x11/x11.h"

#include <QSocketNotifier>
#include <cstdint>
#include <functional>
#include <memory>

namespace quillbox {

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

} // namespace quillbox
