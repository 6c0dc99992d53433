#include "platform/desktop/registration_folder.h"

#include <QByteArray>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

namespace quillbox {

namespace {

constexpr mode_t kPrivateMode = 0700;

/// Whether the path is a folder that belongs to this user and that only this user may write to.
bool isOwn(const std::string& path)
{
    struct stat status {};
    return path.starts_with('/') && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)
           && status.st_uid == ::geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// Whether this is a folder of this user that nobody else may enter.
bool isPrivate(const std::string& path)
{
    struct stat status {};
    return isOwn(path) && ::stat(path.c_str(), &status) == 0
           && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

/// Creates the folder, or opens an existing one if it belongs to this user and is closed to others.
FileDescriptor openPrivate(const std::string& path, std::string& problem)
{
    if (::mkdir(path.c_str(), kPrivateMode) != 0 && errno != EEXIST) {
        problem = path + ": " + std::generic_category().message(errno);
        return {};
    }
    FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!folder.isOpen() || ::fstat(folder.get(), &status) != 0) {
        problem = path + ": " + std::generic_category().message(errno);
        return {};
    }
    if (status.st_uid != ::geteuid()) {
        problem = path + ": belongs to another user";
        return {};
    }
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        problem = path + ": is open to other users";
        return {};
    }
    return folder;
}

std::string sharedPath(const RuntimeFolders& folders, const std::string& bundleIdentifier)
{
    return folders.shared + '/' + bundleIdentifier + '-' + std::to_string(::geteuid());
}

bool isFileName(const std::string& text)
{
    return !text.empty() && text != "." && text != ".." && text.find('/') == std::string::npos;
}

} // namespace

RuntimeFolders systemRuntimeFolders()
{
    return {.xdg = qgetenv("XDG_RUNTIME_DIR").toStdString(),
            .user = "/run/user/" + std::to_string(::geteuid()),
            .shared = "/tmp"};
}

std::string fallbackRuntimeFolder(const RuntimeFolders& folders,
                                  const std::string& bundleIdentifier)
{
    if (isPrivate(folders.user))
        return folders.user;
    std::string problem;
    const auto folder = openRegistrationFolder({.xdg = {}, .user = {}, .shared = folders.shared},
                                               bundleIdentifier, problem);
    return folder.isOpen() ? sharedPath(folders, bundleIdentifier) : std::string();
}

FileDescriptor openRegistrationFolder(const RuntimeFolders& folders,
                                      const std::string& bundleIdentifier, std::string& problem)
{
    if (!isFileName(bundleIdentifier)) {
        problem = '"' + bundleIdentifier + "\": is not a valid folder name";
        return {};
    }
    const std::string name = '/' + bundleIdentifier;
    for (const std::string& base : {folders.xdg, folders.user}) {
        if (!isOwn(base))
            continue;
        if (auto folder = openPrivate(base + name, problem); folder.isOpen())
            return folder;
    }
    return openPrivate(sharedPath(folders, bundleIdentifier), problem);
}

} // namespace quillbox
