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
        Good,       ///< there is an object
        Absent,     ///< there is no file
        Damaged,    ///< what was read is not a JSON object
        Unreadable, ///< it cannot be read now, or is not a regular file
    };

    /// The result of reading the file.
    struct Contents {
        Condition condition = Condition::Absent;
        QJsonObject object;  ///< empty unless good
        std::string problem; ///< a message for the user, if damaged or unreadable
    };
    Contents read() const;

    /// Writes `changes` into the object in the file, whose other keys stay as they are. If the file
    /// is absent or damaged, writes `all` instead, creating the folder if needed; a damaged file is
    /// kept under another name in the same folder. A file that is unreadable is left alone. False
    /// if nothing was written.
    bool write(const QJsonObject& changes, const QJsonObject& all) const;

    const std::string& path() const { return path_; }

private:
    bool replace(const QJsonObject& object, Condition condition) const;

    const std::string path_;
};

} // namespace quillbox
