#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace quillbox {

/// How the desktop has this program's window among those of other programs, as far as the toolkit
/// does not see to it. A window goes by its identifier in the window system. Belongs to the main
/// thread.
class WindowPresence {
public:
    using WindowIdentifier = std::uintptr_t;

    virtual ~WindowPresence() = default;

    /// False while the window stands on a workspace that is not on the screen. True where a desktop
    /// does not tell.
    virtual bool isOnCurrentWorkspace(WindowIdentifier window) const = 0;

    /// Whether taskbars and pagers list the window, from now on and through every hiding. Without
    /// effect where a desktop does not leave the choice to programs.
    virtual void setListed(WindowIdentifier window, bool isListed) = 0;

    /// The desktop's permission to come forward, as it was given to whoever the user started for
    /// that. The next `bringForward` uses it up; may be empty.
    virtual void permit(std::string permission) = 0;

    /// Brings the window to the current workspace, in front of all others, and gives it the
    /// keyboard. `show` has the toolkit show and activate it, and is called once, inside this call.
    virtual void bringForward(WindowIdentifier window, const std::function<void()>& show) = 0;
};

} // namespace quillbox
