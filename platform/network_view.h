#pragma once

#include <functional>

namespace quillbox {

/// The list of servers in the desktop's file managers. They all browse through avahi-daemon, and
/// list nothing without it, even if this program advertises its relays by itself. The daemon may
/// stop, and come back. Used on the main thread.
class NetworkView {
public:
    virtual ~NetworkView() = default;

    /// Whether file managers can list servers. True as long as it is not known.
    virtual bool isAvailable() const = 0;

    /// Called on the main thread at each change of `isAvailable`, never inside this call.
    virtual void setChangedHandler(std::function<void()> handler) = 0;
};

} // namespace quillbox
