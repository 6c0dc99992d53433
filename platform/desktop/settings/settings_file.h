#pragma once

#include <QJsonObject>
#include <chrono>
#include <string>
#include <utility>

#include <sys/types.h>

namespace quillbox {

/// What tells a file from one that replaced it, and from itself before a change.
struct FileVersion {
    dev_t device = 0;
    ino_t inode = 0; ///< 0: there is no file
    off_t size = 0;
    std::chrono::nanoseconds changed{0};

    bool operator==(const FileVersion&) const = default;
};

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
        FileVersion version; ///< of the file that was read; of none if there was none
    };
    Contents read() const;

    /// Writes `changes` into the object in the file, whose other keys stay as they are. If the file
    /// is absent or damaged, writes `all` instead, creating the folder if needed; a damaged file is
    /// kept under another name in the same folder. A file that is unreadable is left alone. False
    /// if nothing was written.
    ///
    /// Other processes that use this function wait meanwhile, for a second at most. If an editor
    /// changes the file, this begins again with what is in it now.
    bool write(const QJsonObject& changes, const QJsonObject& all) const;

    enum class Outcome {
        Done,
        Failed,
        Overtaken, ///< the file is not as it was read any more, and was left alone
    };

    /// Writes `object` in place of what was read.
    Outcome replace(const QJsonObject& object, const Contents& contents) const;

    const std::string& path() const { return path_; }

private:
    const std::string path_;
};

} // namespace quillbox
