#include "platform/desktop/instances/copy_request.h"

#include "platform/desktop/instances/copy_protocol.h"
#include "platform/desktop/instances/local_socket.h"
#include "platform/running_applications.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace quillbox {

namespace {

using copy_protocol::kEndOfLine;
using Clock = std::chrono::steady_clock;

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
std::optional<std::string> receiveLine(int connection, std::size_t longest,
                                       Clock::time_point deadline)
{
    std::string line;
    std::array<char, 65536> buffer{};
    while (line.size() <= longest && await(connection, POLLIN, deadline)) {
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

/// Sends a line and returns the line that answers it.
std::optional<std::string> exchange(int connection, const std::string& line,
                                    std::chrono::milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    if (!isPeerOfSameUser(connection) || !sendAll(connection, line + kEndOfLine, deadline))
        return std::nullopt;
    return receiveLine(
        connection, copy_protocol::kLongestPrefix + RunningApplication::kLongestAnswer, deadline);
}

} // namespace

bool requestActivation(int connection, const std::string& token, std::chrono::milliseconds limit)
{
    return exchange(connection, copy_protocol::activation(token), limit)
           != copy_protocol::kNoDisplay;
}

std::optional<std::string> exchangeMessage(int connection, const std::string& token,
                                           const std::string& text, std::chrono::milliseconds limit)
{
    const auto line = copy_protocol::message(token, text);
    const auto answer = line ? exchange(connection, *line, limit) : std::nullopt;
    return answer ? copy_protocol::answerIn(*answer) : std::nullopt;
}

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

bool waitForProcess(int process, std::chrono::milliseconds limit)
{
    return await(process, POLLIN, Clock::now() + limit);
}

} // namespace quillbox
