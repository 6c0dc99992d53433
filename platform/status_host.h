#pragma once

#include <functional>

namespace quillbox {

/// The place of the desktop that shows the items of running programs: a panel, a tray. It may come
/// after the program, and go and come back. Belongs to the main thread.
class StatusHost {
public:
    virtual ~StatusHost() = default;

    /// Whether an item that is made now is shown.
    virtual bool isAvailable() const = 0;

    /// Called on the main thread at each change of `isAvailable`, never inside this call. It may
    /// drop the host.
    virtual void setChangedHandler(std::function<void()> handler) = 0;
};

} // namespace quillbox
