#include "platform/desktop/instances/instance_exchange.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <string_view>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace quillbox {

namespace {

using instance_protocol::kEndOfLine;
using Clock = std::chrono::steady_clock;

constexpr timespec kBusyPause{.tv_sec = 0, .tv_nsec = 10'000'000};
constexpr std::chrono::milliseconds kActivationLimit{1000};

/// SO_PEERPIDFD, which the headers of Linux before 6.5 lack.
constexpr int kPeerPidfd = 77;

/// Waits for events on a file descriptor; false on timeout or error.
bool await(int descriptor, short events, Clock::time_point deadline)
{
    pollfd waiting{descriptor, events, 0};
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        const auto most = std::max(left, std::chrono::milliseconds::zero());
        const int count = ::poll(&waiting, 1, static_cast<int>(most.count()));
        if (count > 0)
            return true;
        if (count == 0 || errno != EINTR)
            return false;
    }
}

bool sendAll(int connection, std::string_view bytes, Clock::time_point deadline)
{
    while (!bytes.empty()) {
        const auto length = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (length >= 0)
            bytes.remove_prefix(static_cast<std::size_t>(length));
        else if (errno != EINTR && (errno != EAGAIN || !await(connection, POLLOUT, deadline)))
            return false;
    }
    return true;
}

/// Receives one line and returns it without its terminator; nullopt if anything follows it.
std::optional<std::string> receiveLine(int connection, Clock::time_point deadline)
{
    std::string line;
    std::array<char, 65536> buffer{};
    while (line.size() <= instance_protocol::kLongestAnswer
           && await(connection, POLLIN, deadline)) {
        const auto length = ::recv(connection, buffer.data(), buffer.size(), 0);
        if (length < 0 && (errno == EAGAIN || errno == EINTR))
            continue;
        if (length <= 0)
            break;
        line.append(buffer.data(), static_cast<std::size_t>(length));
        if (const auto end = line.find(kEndOfLine, line.size() - static_cast<std::size_t>(length));
            end != std::string::npos) {
            if (end + 1 != line.size())
                break;
            line.pop_back();
            return line;
        }
    }
    return std::nullopt;
}

/// Not open on failure. A non-blocking connect() to a full backlog fails at once, and nothing
/// signals a free slot.
FileDescriptor connectBefore(Clock::time_point deadline, const Registration& registration)
{
    FileDescriptor connection;
    while (connectTo(registration.folder->get(), registration.fileName, connection) == Reached::Busy
           && Clock::now() < deadline)
        ::nanosleep(&kBusyPause, nullptr);
    return connection;
}

/// A pidfd of the process at the other end. Not open if that process has ended or, before
/// Linux 6.5, if it is in another PID namespace.
FileDescriptor processBehind(int connection)
{
    // Since Linux 6.5. It also knows processes of other PID namespaces, which have no number in
    // that of this process.
    int process = -1;
    socklen_t length = sizeof process;
    if (::getsockopt(connection, SOL_SOCKET, kPeerPidfd, &process, &length) == 0)
        return FileDescriptor(process);
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.pid <= 0)
        return {};
    // Not pidfd_open(): the header of glibc 2.36 that declares it is for C only.
    return FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, peer.pid, 0)));
}

class InstanceClient final : public RunningApplication {
public:
    InstanceClient(Registration found, std::string activationToken)
        : registration(std::move(found)), token(std::move(activationToken))
    {
    }

    Launch launch() const override { return registration.launch; }
    bool isTerminated() const override { return !isRunning(registration); }

    bool activate() override
    {
        return exchange({.token = token}, kActivationLimit) != instance_protocol::kNoDisplay;
    }

    std::optional<std::string> ask(const std::string& message,
                                   std::chrono::milliseconds limit) override
    {
        const auto answer = exchange({.token = token, .text = message}, limit);
        return answer ? instance_protocol::answerIn(*answer) : std::nullopt;
    }

    bool waitForEnd(std::chrono::milliseconds limit) override
    {
        const auto deadline = Clock::now() + limit;
        if (process.isOpen())
            return await(process.get(), POLLIN, deadline);
        while (!isTerminated()) {
            if (Clock::now() >= deadline)
                return false;
            ::nanosleep(&kBusyPause, nullptr);
        }
        return true;
    }

private:
    /// Sends the request and returns the line that answers it.
    std::optional<std::string> exchange(const instance_protocol::Request& request,
                                        std::chrono::milliseconds limit)
    {
        const auto deadline = Clock::now() + limit;
        const FileDescriptor connection = connectBefore(deadline, registration);
        if (!connection.isOpen())
            return std::nullopt;
        // Before anything is sent, which may make the process exit.
        process = processBehind(connection.get());
        const auto line = instance_protocol::lineOf(request);
        if (!line || !isPeerOfSameUser(connection.get())
            || !sendAll(connection.get(), *line + kEndOfLine, deadline))
            return std::nullopt;
        return receiveLine(connection.get(), deadline);
    }

    const Registration registration;
    const std::string token;
    FileDescriptor process; ///< a pidfd, set once the instance has been reached
};

} // namespace

std::shared_ptr<RunningApplication> instanceAt(Registration found, std::string activationToken)
{
    return std::make_shared<InstanceClient>(std::move(found), std::move(activationToken));
}

} // namespace quillbox
