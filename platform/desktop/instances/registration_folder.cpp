#include "platform/desktop/instances/registration_folder.h"

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
    const std::string path = sharedPath(folders, bundleIdentifier);
    std::string problem;
    return openRegistrationFolder(path, IfAbsent::Create, problem).isOpen() ? path : std::string();
}

std::vector<std::string> registrationFolders(const RuntimeFolders& folders,
                                             const std::string& bundleIdentifier)
{
    std::vector<std::string> paths;
    if (!isFileName(bundleIdentifier))
        return paths;
    if (isOwn(folders.xdg))
        paths.push_back(folders.xdg + '/' + bundleIdentifier);
    if (folders.user != folders.xdg && isOwn(folders.user))
        paths.push_back(folders.user + '/' + bundleIdentifier);
    paths.push_back(sharedPath(folders, bundleIdentifier));
    return paths;
}

FileDescriptor openRegistrationFolder(const std::string& path, IfAbsent ifAbsent,
                                      std::string& problem)
{
    const auto refused = [&](const std::string& reason) {
        problem = path + ": " + reason;
        return FileDescriptor();
    };
    if (ifAbsent == IfAbsent::Create && ::mkdir(path.c_str(), kPrivateMode) != 0 && errno != EEXIST)
        return refused(std::generic_category().message(errno));
    FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder.isOpen() && errno == ENOENT && ifAbsent == IfAbsent::Fail)
        return folder;
    struct stat status {};
    if (!folder.isOpen() || ::fstat(folder.get(), &status) != 0)
        return refused(std::generic_category().message(errno));
    if (status.st_uid != ::geteuid())
        return refused("belongs to another user");
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        return refused("is open to other users");
    return folder;
}

} // namespace quillbox
