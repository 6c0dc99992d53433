#include "platform/dnssd/engine/child_process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillbox::dnssd {

namespace {

using Clock = std::chrono::steady_clock;

/// What posix_spawn does between fork and exec; unlike fork it is safe in a process with threads.
class SpawnSettings final {
public:
    SpawnSettings(int socket, int program)
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, socket, kSocketOfChild);
        posix_spawn_file_actions_adddup2(&actions, program, kProgramOfChild);
        posix_spawn_file_actions_addclosefrom_np(&actions, kProgramOfChild + 1);

        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }

    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

} // namespace

FileDescriptor openProgram(const std::string& path)
{
    const FileDescriptor opened(::open(path.c_str(), O_PATH | O_CLOEXEC));
    // Above the descriptors of a child process, so that none of them replaces it before it is
    // copied.
    return FileDescriptor(::fcntl(opened.get(), F_DUPFD_CLOEXEC, kProgramOfChild + 1));
}

ChildProcess::ChildProcess(const FileDescriptor& program, std::string name, std::error_code& error)
{
    std::array<int, 2> pair{};
    if (!program.isOpen() || ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair.data())) {
        error.assign(program.isOpen() ? errno : ENOENT, std::system_category());
        return;
    }
    FileDescriptor ours(pair[0]);
    const FileDescriptor its(pair[1]);
    ::fcntl(ours.get(), F_SETFL, O_NONBLOCK);

    const SpawnSettings settings(its.get(), program.get());
    const std::string path = "/proc/self/fd/" + std::to_string(kProgramOfChild);
    const std::array<char*, 2> arguments{name.data(), nullptr};
    const int failure = ::posix_spawn(&process, path.c_str(), &settings.actions,
                                      &settings.attributes, arguments.data(), environ);
    error.assign(failure, std::system_category());
    if (failure != 0)
        process = -1;
    else
        socket = std::move(ours);
}

void ChildProcess::finish(int theSocket, std::chrono::milliseconds limit)
{
    ::shutdown(theSocket, SHUT_WR);
    // End of file means that the process has exited. Until then its packets are read and dropped,
    // so that it does not block on a full socket.
    const auto deadline = Clock::now() + limit;
    std::array<char, 4096> rest{};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return kill();
        pollfd waiting{theSocket, POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(left.count())) <= 0)
            continue;
        const ssize_t length = ::recv(theSocket, rest.data(), rest.size(), MSG_DONTWAIT);
        if (length == 0 || (length < 0 && errno == ECONNRESET))
            return reap();
    }
}

void ChildProcess::kill()
{
    if (process <= 0)
        return;
    ::kill(process, SIGKILL);
    reap();
}

void ChildProcess::reap()
{
    while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
    process = -1;
}

} // namespace quillbox::dnssd
