#include "platform/desktop/instances/registration.h"

#include "platform/desktop/instances/local_socket.h"
#include "platform/posix/file_lock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <ctime>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace quillbox {

namespace {

constexpr const char* kLockName = "lock";
constexpr std::string_view kSuffix = ".socket";
constexpr std::size_t kDateDigits = 20;
constexpr mode_t kLockMode = 0600;

/// The lock is held for a few system calls only, unless its holder is stopped meanwhile.
constexpr std::chrono::seconds kLockLimit{3};

/// Locks the folder with a file in it. `problem` is why, if it is not held.
FileLock lockOf(int folder, std::string& problem)
{
    FileDescriptor file(
        ::openat(folder, kLockName, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kLockMode));
    problem = file.isOpen() ? "another instance holds the lock of the folder"
                            : std::generic_category().message(errno);
    return {std::move(file), kLockLimit};
}

std::chrono::nanoseconds now()
{
    timespec time{};
    ::clock_gettime(CLOCK_BOOTTIME, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// "DATE-PID.socket", with the date in nanoseconds, zero-padded so that names sort by date.
std::string fileNameOf(std::chrono::nanoseconds launchDate, std::int64_t processIdentifier)
{
    const std::string date = std::to_string(launchDate.count());
    return std::string(kDateDigits - std::min(kDateDigits, date.size()), '0') + date + '-'
           + std::to_string(processIdentifier) + std::string(kSuffix);
}

std::optional<std::int64_t> numberIn(std::string_view text)
{
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 0)
        return std::nullopt;
    return number;
}

std::optional<Registration> registrationNamed(std::string_view fileName)
{
    std::string_view text = fileName;
    if (!text.ends_with(kSuffix) || text.size() <= kDateDigits || text[kDateDigits] != '-')
        return std::nullopt;
    text.remove_suffix(kSuffix.size());
    const auto date = numberIn(text.substr(0, kDateDigits));
    const auto process = numberIn(text.substr(kDateDigits + 1));
    if (!date || !process)
        return std::nullopt;
    return Registration{.fileName = std::string(fileName),
                        .processIdentifier = *process,
                        .launchDate = std::chrono::nanoseconds(*date)};
}

std::vector<Registration> registrationsIn(int folder)
{
    struct Close {
        void operator()(DIR* directory) const { ::closedir(directory); }
    };
    std::vector<Registration> found;
    const int copy = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, Close> directory(copy < 0 ? nullptr : ::fdopendir(copy));
    if (!directory)
        return found;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread uses this stream
    while (const dirent* entry = ::readdir(directory.get())) {
        if (auto registration = registrationNamed(static_cast<const char*>(entry->d_name)))
            found.push_back(std::move(*registration));
    }
    std::sort(found.begin(), found.end(),
              [](const Registration& a, const Registration& b) { return a.fileName < b.fileName; });
    return found;
}

} // namespace

std::optional<OwnRegistration> addRegistration(int folder, std::string& problem)
{
    std::string obstacle;
    const FileLock lock = lockOf(folder, obstacle);
    if (!lock.isHeld()) {
        problem = obstacle;
        return std::nullopt;
    }
    OwnRegistration own;
    own.registration.processIdentifier = ::getpid();
    own.registration.launchDate = now();
    own.registration.fileName =
        fileNameOf(own.registration.launchDate, own.registration.processIdentifier);
    own.socket = listenAt(folder, own.registration.fileName);
    if (!own.socket.isOpen()) {
        problem = std::generic_category().message(errno);
        return std::nullopt;
    }
    return own;
}

std::vector<Registration> runningRegistrations(int folder)
{
    // A copy creates its file and starts to listen under the lock, so the holder of the lock never
    // takes a starting copy for a dead one.
    std::string obstacle;
    const FileLock lock = lockOf(folder, obstacle);
    std::vector<Registration> running;
    for (Registration& registration : registrationsIn(folder)) {
        if (isRunning(folder, registration))
            running.push_back(std::move(registration));
        else if (lock.isHeld())
            ::unlinkat(folder, registration.fileName.c_str(), 0);
    }
    return running;
}

bool isRunning(int folder, const Registration& registration)
{
    FileDescriptor connection;
    return connectTo(folder, registration.fileName, connection) != Reached::Nobody;
}

} // namespace quillbox
