#include "platform/dnssd/engine/engine_child_process.h"

#include "platform/dnssd/processes/engine_child.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillbox::dnssd {

namespace {

/// What posix_spawn does between fork and exec; unlike fork it is safe in a process with threads.
class SpawnSettings final {
public:
    explicit SpawnSettings(int childSocket)
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, childSocket, kEngineChildDescriptor);
        posix_spawn_file_actions_addclosefrom_np(&actions, kEngineChildDescriptor + 1);

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

EngineChildProcess::EngineChildProcess(const std::string& executable)
{
    std::array<int, 2> pair{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair.data()) != 0)
        return;

    const SpawnSettings settings(pair[1]);
    // The process prints its name if it aborts: not "exe", the last part of the link to this
    // program.
    std::string program = executable == kThisProgram ? program_invocation_short_name : executable;
    std::string option = kEngineChildOption;
    const std::array<char*, 3> arguments{program.data(), option.data(), nullptr};
    const int error = ::posix_spawn(&process, executable.c_str(), &settings.actions,
                                    &settings.attributes, arguments.data(), environ);
    ::close(pair[1]);
    if (error != 0) {
        process = -1;
        ::close(pair[0]);
        return;
    }
    socket = pair[0];
    ::fcntl(socket, F_SETFL, O_NONBLOCK);
}

EngineChildProcess::~EngineChildProcess()
{
    if (process > 0) {
        ::kill(process, SIGKILL);
        while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    if (socket >= 0)
        ::close(socket);
}

bool EngineChildProcess::finish(std::chrono::milliseconds limit)
{
    if (process <= 0)
        return true;
    ::shutdown(socket, SHUT_WR);
    // End of file means that the process has exited. Until then its events are read and dropped, so
    // that it does not block on a full socket.
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::array<char, 4096> rest{};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left <= std::chrono::milliseconds::zero())
            return false;
        pollfd waiting{socket, POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(left.count())) <= 0)
            continue;
        const ssize_t length = ::recv(socket, rest.data(), rest.size(), MSG_DONTWAIT);
        if (length == 0 || (length < 0 && errno == ECONNRESET))
            break;
    }
    while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
    process = -1;
    return true;
}

} // namespace quillbox::dnssd
