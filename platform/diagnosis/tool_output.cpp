#include "platform/diagnosis/tool_output.h"

#include "platform/posix/argument_vector.h"
#include "platform/posix/file_descriptor.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillbox::diagnosis {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostOutput = std::size_t{16} << 20U;

struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;
};

Pipe makePipe()
{
    std::array<int, 2> ends{-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return {};
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// Starts the program; -1 on failure.
pid_t spawn(const std::vector<std::string>& command, const Pipe& output, const Pipe& complaints)
{
    const ArgumentVector arguments(command);
    std::string language = "LC_ALL=C";
    std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    const std::array<char*, 3> environment{language.data(), path.data(), nullptr};

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, output.writing.get(), STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, complaints.writing.get(), STDERR_FILENO);
    pid_t process = -1;
    const int failure = ::posix_spawn(&process, arguments.program(), &actions, nullptr,
                                      arguments.data(), environment.data());
    ::posix_spawn_file_actions_destroy(&actions);
    return failure == 0 ? process : -1;
}

/// Reads what is available; false at the end of the stream, or on error.
bool take(int descriptor, std::string& text)
{
    std::array<char, 65536> buffer;
    const auto count = ::read(descriptor, buffer.data(), buffer.size());
    if (count < 0)
        return errno == EINTR || errno == EAGAIN;
    text.append(buffer.data(), static_cast<std::size_t>(count));
    return count > 0;
}

/// Reads both streams to their ends; false on timeout, or if there is too much output.
bool readAll(const Pipe& output, const Pipe& complaints, Clock::time_point end, ToolOutput& result)
{
    std::array<pollfd, 2> streams{pollfd{output.reading.get(), POLLIN, 0},
                                  pollfd{complaints.reading.get(), POLLIN, 0}};
    while (streams[0].fd >= 0 || streams[1].fd >= 0) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0 || result.output.size() + result.complaints.size() > kMostOutput)
            return false;
        if (::poll(streams.data(), streams.size(), static_cast<int>(left)) < 0 && errno != EINTR)
            return false;
        if (streams[0].revents != 0 && !take(streams[0].fd, result.output))
            streams[0].fd = -1;
        if (streams[1].revents != 0 && !take(streams[1].fd, result.complaints))
            streams[1].fd = -1;
    }
    return true;
}

} // namespace

std::string findTool(const std::string& name)
{
    // Read once, before anything could change it.
    const char* variable = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe)
    std::string folders = std::string(variable == nullptr ? "" : variable)
                          + ":/usr/local/sbin:/usr/sbin:/sbin:/usr/bin:/bin";
    for (std::string_view rest = folders; !rest.empty();) {
        const auto end = std::min(rest.find(':'), rest.size());
        const std::filesystem::path folder(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        const auto path = folder / name;
        std::error_code ignored;
        if (folder.is_absolute() && std::filesystem::is_regular_file(path, ignored)
            && ::access(path.c_str(), X_OK) == 0)
            return path;
    }
    return {};
}

ToolOutput runTool(const std::vector<std::string>& command, std::chrono::milliseconds limit)
{
    const auto end = Clock::now() + limit;
    ToolOutput result;
    Pipe output = makePipe();
    Pipe complaints = makePipe();
    const pid_t process = spawn(command, output, complaints);
    if (process < 0)
        return result;
    output.writing.reset();
    complaints.writing.reset();
    const bool isWhole = readAll(output, complaints, end, result);
    // A program that has closed both streams is about to exit, so waitpid() needs no limit.
    if (!isWhole)
        ::kill(process, SIGKILL);
    int status = 0;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (!isWhole)
        result.end = ToolOutput::End::Late;
    else if (WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS)
        result.end = ToolOutput::End::Done;
    else
        result.end = ToolOutput::End::Failed;
    return result;
}

} // namespace quillbox::diagnosis
