#include "platform/desktop/instances/registration.h"

#include "platform/posix/file_lock.h"
#include "platform/posix/local_listener.h"
#include "platform/values/text.h"

#include <QByteArray>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillbox {

namespace {

constexpr mode_t kFolderMode = 0700;
constexpr const char* kLockName = "lock";
constexpr mode_t kLockMode = 0600;
constexpr const char* kEnding = "socket";
constexpr std::size_t kDateDigits = 20;
constexpr int kBacklog = 64;
constexpr mode_t kSocketMode = 0600;

/// The lock is held for a few system calls only, unless its holder is stopped meanwhile.
constexpr std::chrono::seconds kLockLimit{3};

std::string reasonOf(int error)
{
    return std::generic_category().message(error);
}

std::string pathOf(int folder, const std::string& name)
{
    return "/proc/self/fd/" + std::to_string(folder) + '/' + name;
}

/// Whether the path is a folder that belongs to this user, and nobody else has these permissions.
bool isOwn(const std::string& path, mode_t denied)
{
    struct stat status {};
    return path.starts_with('/') && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)
           && status.st_uid == ::geteuid() && (status.st_mode & denied) == 0;
}

std::string sharedPath(const RuntimeFolders& folders, const std::string& bundleIdentifier)
{
    return folders.shared + '/' + bundleIdentifier + '-' + std::to_string(::geteuid());
}

/// The paths at which instances register, in the order in which one tries them.
std::vector<std::string> registrationPaths(const RuntimeFolders& folders,
                                           const std::string& bundleIdentifier)
{
    constexpr mode_t kWritableByOthers = S_IWGRP | S_IWOTH;
    std::vector<std::string> paths;
    if (isOwn(folders.xdg, kWritableByOthers))
        paths.push_back(folders.xdg + '/' + bundleIdentifier);
    if (folders.user != folders.xdg && isOwn(folders.user, kWritableByOthers))
        paths.push_back(folders.user + '/' + bundleIdentifier);
    paths.push_back(sharedPath(folders, bundleIdentifier));
    return paths;
}

enum class IfAbsent { Create, Fail };

/// Opens a folder that belongs to this user and that nobody else may enter. Not open on failure,
/// with the reason in `problem`, which is unchanged if the folder is absent and need not be
/// created.
FileDescriptor openFolder(const std::string& path, IfAbsent ifAbsent, std::string& problem)
{
    const auto refused = [&](const std::string& reason) {
        problem = path + ": " + reason;
        return FileDescriptor();
    };
    if (ifAbsent == IfAbsent::Create && ::mkdir(path.c_str(), kFolderMode) != 0 && errno != EEXIST)
        return refused(reasonOf(errno));
    FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder.isOpen() && errno == ENOENT && ifAbsent == IfAbsent::Fail)
        return folder;
    struct stat status {};
    if (!folder.isOpen() || ::fstat(folder.get(), &status) != 0)
        return refused(reasonOf(errno));
    if (status.st_uid != ::geteuid())
        return refused("belongs to another user");
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        return refused("is open to other users");
    return folder;
}

/// Locks the folder with a file in it. `problem` is why, if it is not held.
FileLock lockOf(int folder, std::string& problem)
{
    FileDescriptor file(
        ::openat(folder, kLockName, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kLockMode));
    problem = file.isOpen() ? "another instance holds the lock of the folder" : reasonOf(errno);
    return {std::move(file), kLockLimit};
}

std::chrono::nanoseconds now()
{
    timespec time{};
    ::clock_gettime(CLOCK_BOOTTIME, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// "DATE-PID.socket", with the date in nanoseconds, zero-padded so that names sort by date.
std::string fileNameOf(std::chrono::nanoseconds date, std::int64_t processIdentifier)
{
    const std::string digits = std::to_string(date.count());
    return std::string(kDateDigits - std::min(kDateDigits, digits.size()), '0') + digits + '-'
           + std::to_string(processIdentifier) + '.' + kEnding;
}

std::optional<std::int64_t> numberIn(std::string_view text)
{
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 0)
        return std::nullopt;
    return number;
}

std::optional<Registration> registrationNamed(std::string_view fileName,
                                              std::shared_ptr<const FileDescriptor> folder)
{
    std::string_view ending = fileName;
    const std::string_view digits = takePart(ending, '-');
    const auto date = numberIn(digits);
    const auto process = numberIn(takePart(ending, '.'));
    if (!date || digits.size() != kDateDigits || !process || ending != kEnding)
        return std::nullopt;
    return Registration{
        .folder = std::move(folder),
        .fileName = std::string(fileName),
        .launch = {.date = std::chrono::nanoseconds(*date), .processIdentifier = *process}};
}

std::vector<Registration> registrationsIn(const std::shared_ptr<const FileDescriptor>& folder)
{
    std::vector<Registration> found;
    std::error_code error;
    for (std::filesystem::directory_iterator each(pathOf(folder->get(), {}), error), end;
         !error && each != end; each.increment(error)) {
        if (auto registration = registrationNamed(each->path().filename().native(), folder))
            found.push_back(std::move(*registration));
    }
    return found;
}

} // namespace

FileDescriptor listenAt(int folder, const std::string& name)
{
    FileDescriptor socket = makeLocalSocket();
    if (!socket.isOpen())
        return {};
    // bind() creates the file with the socket's mode.
    ::fchmod(socket.get(), kSocketMode);
    if (!callWithAddress(::bind, socket, pathOf(folder, name))
        || ::listen(socket.get(), kBacklog) != 0)
        return {};
    return socket;
}

Reached connectTo(int folder, const std::string& name, FileDescriptor& connection)
{
    FileDescriptor socket = makeLocalSocket();
    if (!socket.isOpen())
        return Reached::Busy;
    if (callWithAddress(::connect, socket, pathOf(folder, name))) {
        connection = std::move(socket);
        return Reached::Connected;
    }
    // Only these two mean that nobody listens; other errors may be a shortage in this process.
    return errno == ECONNREFUSED || errno == ENOENT ? Reached::Nobody : Reached::Busy;
}

bool isPeerOfSameUser(int connection)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0
           && peer.uid == ::geteuid();
}

RuntimeFolders systemRuntimeFolders()
{
    return {.xdg = qgetenv("XDG_RUNTIME_DIR").toStdString(),
            .user = "/run/user/" + std::to_string(::geteuid()),
            .shared = "/tmp"};
}

std::string fallbackRuntimeFolder(const RuntimeFolders& folders,
                                  const std::string& bundleIdentifier)
{
    if (isOwn(folders.user, S_IRWXG | S_IRWXO))
        return folders.user;
    const std::string path = sharedPath(folders, bundleIdentifier);
    std::string problem;
    return openFolder(path, IfAbsent::Create, problem).isOpen() ? path : std::string();
}

std::optional<OwnRegistration> addRegistration(const RuntimeFolders& folders,
                                               const std::string& bundleIdentifier,
                                               std::string& problem)
{
    for (const std::string& path : registrationPaths(folders, bundleIdentifier)) {
        auto folder = std::make_shared<FileDescriptor>(openFolder(path, IfAbsent::Create, problem));
        if (!folder->isOpen())
            continue;
        std::string obstacle;
        const FileLock lock = lockOf(folder->get(), obstacle);
        if (!lock.isHeld()) {
            problem = path + ": " + obstacle;
            continue;
        }
        const Launch launch{.date = now(), .processIdentifier = ::getpid()};
        const std::string name = fileNameOf(*launch.date, launch.processIdentifier);
        FileDescriptor socket = listenAt(folder->get(), name);
        if (!socket.isOpen()) {
            problem = path + ": " + reasonOf(errno);
            continue;
        }
        // Tools that clean temporary folders, such as systemd-tmpfiles, skip a locked one.
        ::flock(folder->get(), LOCK_SH | LOCK_NB);
        return OwnRegistration{
            .registration = {.folder = std::move(folder), .fileName = name, .launch = launch},
            .socket = std::move(socket)};
    }
    return std::nullopt;
}

void removeRegistration(const Registration& registration)
{
    ::unlinkat(registration.folder->get(), registration.fileName.c_str(), 0);
}

std::vector<Registration> runningRegistrations(const RuntimeFolders& folders,
                                               const std::string& bundleIdentifier,
                                               std::string& problem)
{
    std::vector<Registration> running;
    bool isAnySafe = false;
    for (const std::string& path : registrationPaths(folders, bundleIdentifier)) {
        const auto folder =
            std::make_shared<const FileDescriptor>(openFolder(path, IfAbsent::Fail, problem));
        if (!folder->isOpen())
            continue;
        isAnySafe = true;
        // An instance creates its file and starts to listen under the lock, so the holder of the
        // lock never takes a starting one for a dead one.
        std::string obstacle;
        const FileLock lock = lockOf(folder->get(), obstacle);
        for (Registration& each : registrationsIn(folder)) {
            if (isRunning(each))
                running.push_back(std::move(each));
            else if (lock.isHeld())
                removeRegistration(each);
        }
    }
    if (isAnySafe)
        problem.clear();
    std::sort(running.begin(), running.end(),
              [](const Registration& a, const Registration& b) { return a.fileName < b.fileName; });
    // Two of the paths may lead to the same folder.
    const auto rest = std::unique(
        running.begin(), running.end(),
        [](const Registration& a, const Registration& b) { return a.fileName == b.fileName; });
    running.erase(rest, running.end());
    return running;
}

bool isRunning(const Registration& registration)
{
    FileDescriptor connection;
    return connectTo(registration.folder->get(), registration.fileName, connection)
           != Reached::Nobody;
}

} // namespace quillbox
