#pragma once

#include <string>

namespace quillbox {

/// Desktop services for programs. Used on the main thread.
class Workspace {
public:
    virtual ~Workspace() = default;

    /// Opens a URL (RFC 3986, already encoded; scheme "https" or "smb") in the user's preferred
    /// program. Returns at once; success is not reported. Other schemes are refused.
    virtual void open(const std::string& url) = 0;

    /// Plays the desktop's alert sound.
    virtual void beep() = 0;
};

} // namespace quillbox
