#pragma once

#include <functional>
#include <string>

namespace quillbox {

/// Tells the user something that the window does not show. Main thread only.
class Notice {
public:
    /// Called from the event loop once the process may exit without the notice being lost: the
    /// desktop has taken it over, or the user has closed it.
    using Delivered = std::function<void()>;

    virtual ~Notice() = default;

    /// Shows plain text; replaces the notice before. Returns at once.
    virtual void show(const std::string& title, const std::string& text, Delivered delivered) = 0;
};

} // namespace quillbox
