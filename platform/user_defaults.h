#pragma once

#include <span>
#include <string>
#include <string_view>

namespace quillbox {

/// The typed settings store of this application. Used on the main thread.
///
/// Later reads see a written value immediately; it is saved to disk asynchronously. If saving
/// fails, this is reported on standard error and the stored file stays intact.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    /// The stored string, or `standard` if there is none. A value of another type is reported on
    /// standard error, together with `standard`, and stays stored until another value than
    /// `standard` is set.
    virtual std::string stringForKey(const std::string& key, const std::string& standard) = 0;

    /// The same for Booleans. The numbers 0 and 1 convert to a Boolean; strings do not, not even
    /// "true".
    virtual bool boolForKey(const std::string& key, bool standard) = 0;

    /// The same for a string that must be one of `choices`; the first of them is the standard.
    virtual std::string choiceForKey(const std::string& key,
                                     std::span<const std::string_view> choices) = 0;

    /// True if that is another value than the store had, or the first one.
    virtual bool setString(const std::string& key, const std::string& value) = 0;
    virtual bool setBool(const std::string& key, bool value) = 0;

    /// Saves at once. False if a written value could not be saved.
    virtual bool save() = 0;

    /// Why nothing that is stored could be used, in words for the user; empty if it could, or if
    /// nothing was stored.
    virtual std::string problem() const = 0;
};

} // namespace quillbox
