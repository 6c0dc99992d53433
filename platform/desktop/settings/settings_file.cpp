#include "platform/desktop/settings/settings_file.h"

#include "platform/posix/file_descriptor.h"
#include "platform/posix/file_lock.h"
#include "platform/values/standard_error.h"

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>
#include <QString>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillbox {

namespace {

constexpr qsizetype kLargestFile = qsizetype{1024} * 1024;
constexpr mode_t kFolderMode = 0700;
constexpr int kMostLinks = 40; // as many as the kernel follows
constexpr int kMostSetAside = 1000;
constexpr int kMostAttempts = 10;

/// The lock is held for a few system calls only, unless its holder is stopped meanwhile.
constexpr std::chrono::seconds kWriteLockLimit{1};

std::string reasonOf(int error)
{
    return std::generic_category().message(error);
}

void complain(const std::string& reason)
{
    printToStandardError("quillbox-helper: settings cannot be stored: " + reason);
}

/// Where a chain of symbolic links ends, whether or not anything is there.
std::string linkTarget(const std::string& path)
{
    std::filesystem::path target = path;
    std::error_code error;
    for (int links = 0; links < kMostLinks; ++links) {
        const auto next = std::filesystem::read_symlink(target, error);
        if (error)
            break;
        target = target.parent_path() / next; // an absolute `next` replaces all
    }
    return target.string();
}

/// Reads at most one byte more than kLargestFile. nullopt on failure, with the reason in errno.
std::optional<QByteArray> readAll(int descriptor)
{
    QByteArray bytes;
    std::array<char, 16384> buffer{};
    while (bytes.size() <= kLargestFile) {
        const ssize_t length = ::read(descriptor, buffer.data(), buffer.size());
        if (length == 0)
            break;
        if (length < 0 && errno != EINTR)
            return std::nullopt;
        if (length > 0)
            bytes.append(buffer.data(), length);
    }
    return bytes;
}

/// The object in `bytes`; nullopt if there is none, with the reason in `problem`.
std::optional<QJsonObject> objectIn(const QByteArray& bytes, std::string& problem)
{
    if (bytes.size() > kLargestFile) {
        problem = "it is larger than 1 MiB";
        return std::nullopt;
    }
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError) {
        problem = error.errorString().toStdString() + ", at byte " + std::to_string(error.offset);
        return std::nullopt;
    }
    if (!document.isObject()) {
        problem = "it is not a JSON object";
        return std::nullopt;
    }
    return document.object();
}

/// Creates the folder and its missing parents.
bool makeFolder(const std::filesystem::path& folder)
{
    std::filesystem::path path;
    for (const auto& part : folder) {
        path /= part;
        std::error_code error;
        if (std::filesystem::is_directory(path, error) || ::mkdir(path.c_str(), kFolderMode) == 0
            || errno == EEXIST)
            continue;
        complain(path.string() + ": " + reasonOf(errno));
        return false;
    }
    return true;
}

/// Fails with EEXIST if `to` exists. Some file systems lack RENAME_NOREPLACE, others hard links.
bool renameWithoutReplacing(const std::string& from, const std::string& to)
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    return ::link(from.c_str(), to.c_str()) == 0 && ::unlink(from.c_str()) == 0;
}

/// Renames the file to a free name in the same folder.
bool setAside(const std::string& file)
{
    for (int number = 0; number < kMostSetAside; ++number) {
        const std::string name =
            file + ".invalid" + (number == 0 ? std::string() : '-' + std::to_string(number));
        if (renameWithoutReplacing(file, name)) {
            printToStandardError("quillbox-helper: the old settings are now in " + name);
            return true;
        }
        if (errno != EEXIST)
            break;
    }
    complain(file + " cannot be set aside: " + reasonOf(errno));
    return false;
}

FileVersion versionOf(const struct stat& status)
{
    return {.device = status.st_dev,
            .inode = status.st_ino,
            .size = status.st_size,
            .changed = std::chrono::seconds(status.st_mtim.tv_sec)
                       + std::chrono::nanoseconds(status.st_mtim.tv_nsec)};
}

FileVersion versionAt(const std::string& path)
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? versionOf(status) : FileVersion();
}

/// Keeps other processes of this program from writing. A lock that cannot be had, because its
/// holder is stopped or the file system has none, does not keep this one from it.
FileLock lockAgainstOthers(const std::string& folder)
{
    return {FileDescriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
            kWriteLockLimit};
}

} // namespace

SettingsFile::Contents SettingsFile::read() const
{
    Contents contents;
    // O_NONBLOCK, because opening a named pipe would block.
    const FileDescriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.isOpen() && errno == ENOENT)
        return contents;
    contents.condition = Condition::Unreadable;
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        contents.problem = reasonOf(errno);
        return contents;
    }
    if (!S_ISREG(status.st_mode)) {
        contents.problem = "it is not a regular file";
        return contents;
    }
    const auto bytes = readAll(file.get());
    if (!bytes) {
        contents.problem = reasonOf(errno);
        return contents;
    }
    contents.version = versionOf(status);
    auto object = objectIn(*bytes, contents.problem);
    contents.condition = object ? Condition::Good : Condition::Damaged;
    if (object)
        contents.object = std::move(*object);
    return contents;
}

bool SettingsFile::write(const QJsonObject& changes, const QJsonObject& all) const
{
    const std::string folder = std::filesystem::path(linkTarget(path_)).parent_path();
    const FileLock lock = lockAgainstOthers(folder);
    for (int count = 0; count < kMostAttempts; ++count) {
        const Contents contents = read();
        if (contents.condition == Condition::Unreadable) {
            complain(path_ + ": " + contents.problem);
            return false;
        }
        QJsonObject object = contents.condition == Condition::Good ? contents.object : all;
        for (auto entry = changes.constBegin(); entry != changes.constEnd(); ++entry)
            object.insert(entry.key(), entry.value());
        if (contents.condition == Condition::Good && object == contents.object)
            return true;
        const Outcome outcome = replace(object, contents);
        if (outcome != Outcome::Overtaken)
            return outcome == Outcome::Done;
    }
    complain(path_ + ": another program changes it again and again");
    return false;
}

SettingsFile::Outcome SettingsFile::replace(const QJsonObject& object,
                                            const Contents& contents) const
{
    const std::string target = linkTarget(path_);
    if (!makeFolder(std::filesystem::path(target).parent_path()))
        return Outcome::Failed;
    QSaveFile file(QFile::decodeName(QByteArray::fromStdString(target)));
    const QByteArray bytes = QJsonDocument(object).toJson();
    // The old file is set aside only once the new one is complete. If the disk fills up, write()
    // returns a short count, but commit() succeeds nevertheless.
    const bool isWritten = file.open(QIODevice::WriteOnly)
                           && file.setPermissions(QFile::ReadOwner | QFile::WriteOwner)
                           && file.write(bytes) == bytes.size() && file.flush();
    if (isWritten && versionAt(target) != contents.version)
        return Outcome::Overtaken;
    if (isWritten && contents.condition == Condition::Damaged && !setAside(target))
        return Outcome::Failed;
    if (isWritten && file.commit())
        return Outcome::Done;
    complain(target + ": " + file.errorString().toStdString());
    return Outcome::Failed;
}

} // namespace quillbox
