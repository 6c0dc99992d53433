#pragma once

#include <functional>
#include <optional>
#include <string>

namespace quillbox {

/// Desktop services for programs. Used on the main thread.
class Workspace {
public:
    /// Gets nullopt if the URL was opened, as far as can be known, else the reason for the user why
    /// it was not, in one line.
    using Opened = std::function<void(const std::optional<std::string>& reason)>;

    virtual ~Workspace() = default;

    /// Opens a URL (RFC 3986, already encoded; scheme "https" or "smb") in the user's preferred
    /// program. Other schemes are refused. `permission` is an activation token from the desktop
    /// with which that program comes to the front; if it is empty, one is requested for what the
    /// user just did in this program.
    ///
    /// Returns at once. If the URL cannot be opened, shows the user the reason, as a notification
    /// or in a window. `opened`, which may be empty, is called at most once, perhaps inside this
    /// call, and within 25 seconds unless the workspace is destroyed before.
    virtual void open(const std::string& url, const std::string& permission, Opened opened) = 0;

    /// Plays the desktop's alert sound.
    virtual void beep() = 0;
};

} // namespace quillbox
