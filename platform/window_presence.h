#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace quillbox {

/// Window management that the toolkit does not provide: workspaces, taskbar entries, activation.
/// Windows are identified by their ID in the window system. Used on the main thread.
class WindowPresence {
public:
    using WindowIdentifier = std::uintptr_t;

    virtual ~WindowPresence() = default;

    /// Whether a menu can be opened at the pointer wherever it is, also over the desktop's panel.
    /// If not, a menu can be opened only over a window of this program that is on the screen.
    virtual bool canOpenMenuAnywhere() const = 0;

    /// Sets whether taskbars and pagers list the window; stays in effect when the window is hidden
    /// and shown again. No effect on desktops that do not let programs choose.
    virtual void setListed(WindowIdentifier window, bool isListed) = 0;

    /// Returns the activation token that a panel passed with the user's click on the status item,
    /// or with the choice in its menu, and forgets it; empty if there is none. Call it only while
    /// such a click is handled: a token may also be left over from a menu that was dismissed.
    virtual std::string takePermissionOfPanel() = 0;

    /// Moves the window to the current workspace, raises it, and gives it the keyboard focus.
    /// `permission` is the activation token (XDG_ACTIVATION_TOKEN or DESKTOP_STARTUP_ID) that the
    /// desktop gave to what asked for this, such as another process; may be empty. `show` makes the
    /// toolkit show and activate the window; called once, inside this call.
    virtual void bringForward(WindowIdentifier window, const std::string& permission,
                              const std::function<void()>& show) = 0;
};

} // namespace quillbox
