#pragma once

#include <functional>

namespace quillbox {

/// The part of the desktop that shows status items: a panel or a system tray. It may start after
/// this program, disappear, and come back. Used on the main thread.
class StatusHost {
public:
    virtual ~StatusHost() = default;

    /// Whether an item created now is shown.
    virtual bool isAvailable() const = 0;

    /// Called on the main thread at each change of `isAvailable`, never inside this call. May
    /// destroy this object.
    virtual void setChangedHandler(std::function<void()> handler) = 0;
};

} // namespace quillbox
