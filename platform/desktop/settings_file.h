#pragma once

#include <QJsonObject>
#include <string>

namespace quillbox {

/// A file that holds one JSON object. It is written atomically and is readable by its owner only; a
/// symbolic link to it is preserved. Errors are printed on standard error.
class SettingsFile final {
public:
    explicit SettingsFile(std::string path) : path_(std::move(path)) {}

    enum class Condition {
        Good,    ///< there is an object
        Absent,  ///< there is no file
        Damaged, ///< it is unreadable or not a JSON object, and is read as empty
    };

    /// The result of reading the file.
    struct Contents {
        Condition condition = Condition::Absent;
        QJsonObject object;
        std::string problem; ///< a message for the user, if damaged
    };
    Contents read() const;

    /// Replaces the file, creating its folder if needed. A damaged file is first renamed to a free
    /// name in the same folder. False on failure; the old contents are then still in one of the
    /// two files.
    bool replace(const QJsonObject& object, Condition condition) const;

    const std::string& path() const { return path_; }

private:
    bool setAside(const std::string& file) const;

    const std::string path_;
};

} // namespace quillbox
