#pragma once

#include <optional>
#include <string>

namespace quillbox {

/// The typed settings store of this application. Used on the main thread.
///
/// Reading never fails: a value that is missing or of another type reads as none. Later reads see a
/// written value immediately; it is saved to disk asynchronously. If saving fails, this is reported
/// on standard error and the stored file stays intact.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    /// The stored string; none if missing or of another type.
    virtual std::optional<std::string> stringForKey(const std::string& key) const = 0;

    /// The stored value if it converts to a Boolean: true, false, and the numbers 0 and 1. Strings
    /// do not convert, not even "true".
    virtual std::optional<bool> boolForKey(const std::string& key) const = 0;

    virtual void setString(const std::string& key, const std::string& value) = 0;
    virtual void setBool(const std::string& key, bool value) = 0;
};

} // namespace quillbox
