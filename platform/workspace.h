#pragma once

#include <string>

namespace quillbox {

/// What the desktop does for the user on a program's behalf. Belongs to the main thread.
class Workspace {
public:
    virtual ~Workspace() = default;

    /// Hands a URL (RFC 3986, already encoded; scheme "https" or "smb") to the program that the
    /// user prefers for it. Returns at once; whether anything opened is not told. Any other scheme
    /// is refused.
    virtual void open(const std::string& url) = 0;

    /// The desktop's alert sound.
    virtual void beep() = 0;
};

} // namespace quillbox
