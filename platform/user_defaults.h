#pragma once

#include <optional>
#include <string>

namespace quillbox {

/// The typed settings store of this application. Belongs to the main thread.
///
/// Reading never fails: a value that is absent, or of another kind, is none. Writing takes effect
/// at once for later reads; it reaches the disk by itself, and a failure to get there is said on
/// standard error and loses nothing of what is stored there already.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    /// The stored text; none when absent or of another type.
    virtual std::optional<std::string> stringForKey(const std::string& key) const = 0;

    /// The stored value if it converts to a Boolean: true, false, and the numbers 0 and 1. A text
    /// does not convert, not even "true".
    virtual std::optional<bool> boolForKey(const std::string& key) const = 0;

    virtual void setString(const std::string& key, const std::string& value) = 0;
    virtual void setBool(const std::string& key, bool value) = 0;
};

} // namespace quillbox
