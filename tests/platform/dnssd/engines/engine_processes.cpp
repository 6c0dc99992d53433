#include "tests/platform/dnssd/engines/engine_processes.h"

#include "platform/dnssd/engine/engine_process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillbox::dnssd {

std::vector<pid_t> childrenOf(pid_t parent)
{
    std::vector<pid_t> result;
    const auto tasks = "/proc/" + std::to_string(parent) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        std::ifstream children(task.path() / "children");
        for (pid_t child = 0; children >> child;)
            result.push_back(child);
    }
    return result;
}

std::vector<pid_t> engineProcessesOf(pid_t parent)
{
    std::vector<pid_t> result;
    for (const pid_t child : childrenOf(parent)) {
        std::ifstream commandLine("/proc/" + std::to_string(child) + "/cmdline");
        std::string name;
        std::getline(commandLine, name, '\0');
        if (name == kDaemonProgram || name == kResponderProgram)
            result.push_back(child);
    }
    return result;
}

std::optional<pid_t> engineProcessOf(pid_t parent)
{
    const auto processes = engineProcessesOf(parent);
    return processes.size() == 1 ? std::optional(processes.front()) : std::nullopt;
}

bool waitForEnd(pid_t process, std::chrono::milliseconds limit)
{
    const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
    if (descriptor < 0)
        return errno == ESRCH;
    pollfd waiting{descriptor, POLLIN, 0};
    const bool hasEnded = ::poll(&waiting, 1, static_cast<int>(limit.count())) == 1;
    ::close(descriptor);
    return hasEnded;
}

std::string statusLine(pid_t process, const std::string& name)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name + ":"))
            return line;
    }
    return {};
}

BareProcess::BareProcess(const std::string& program)
{
    const std::string path = engineProgram(program);
    std::array<int, 2> pair{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair.data()) != 0)
        return;
    process = ::fork();
    if (process == 0) {
        ::dup2(pair[1], 3);
        ::execl(path.c_str(), program.c_str(), nullptr);
        ::_exit(127);
    }
    ::close(pair[1]);
    socket = pair[0];
}

BareProcess::~BareProcess()
{
    ::close(socket);
    if (process > 0) {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }
}

std::optional<Message<Event>> BareProcess::next(std::chrono::milliseconds limit) const
{
    pollfd waiting{socket, POLLIN, 0};
    if (::poll(&waiting, 1, static_cast<int>(limit.count())) != 1)
        return std::nullopt;
    std::array<std::uint8_t, 512> bytes{};
    const ssize_t length = ::recv(socket, bytes.data(), bytes.size(), 0);
    return length > 0 ? decodeEvent(std::span(bytes).first(static_cast<std::size_t>(length)))
                      : std::nullopt;
}

std::optional<Message<Event>> BareProcess::nextAnswer() const
{
    auto message = next();
    while (message
           && (std::holds_alternative<Alive>(message->content)
               || std::holds_alternative<EngineDown>(message->content)))
        message = next();
    return message;
}

bool BareProcess::send(std::string_view bytes) const
{
    return ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL)
           == static_cast<ssize_t>(bytes.size());
}

bool BareProcess::send(Generation generation, const Request& request) const
{
    const Packet packet = encode(generation, request);
    return send(std::string_view(reinterpret_cast<const char*>(packet.data()), packet.size()));
}

std::optional<int> BareProcess::exitStatus()
{
    int status = 0;
    if (!waitForEnd(process, std::chrono::seconds(5))
        || ::waitpid(std::exchange(process, -1), &status, 0) < 0 || !WIFEXITED(status))
        return std::nullopt;
    return WEXITSTATUS(status);
}

} // namespace quillbox::dnssd
