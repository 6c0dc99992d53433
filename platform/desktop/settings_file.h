#pragma once

#include <QJsonObject>
#include <string>

namespace quillbox {

/// A file that holds one JSON object. It is written as a whole or not at all, readable by its owner
/// only; a symbolic link to it stays one. Trouble is said on standard error.
class SettingsFile final {
public:
    explicit SettingsFile(std::string path) : path_(std::move(path)) {}

    enum class Condition {
        Good,    ///< there is an object
        Absent,  ///< there is no file
        Damaged, ///< there is something else, or something unreadable: it is read as empty
    };

    /// Reads the file anew.
    struct Contents {
        Condition condition = Condition::Absent;
        QJsonObject object;
        std::string problem; ///< for people; set when damaged
    };
    Contents read() const;

    /// Replaces the file, making its folder if need be. What is damaged is first set aside under a
    /// name of its own next to it. False when it cannot be done; the file is then as it was.
    bool replace(const QJsonObject& object, Condition condition) const;

    const std::string& path() const { return path_; }

private:
    bool setAside(const std::string& file) const;

    const std::string path_;
};

} // namespace quillbox
