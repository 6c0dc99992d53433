#include "tests/platform/dnssd/engines/test_process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillbox::dnssd {

using Clock = std::chrono::steady_clock;

namespace {

int millisecondsUntil(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

} // namespace

TestProcess::TestProcess(const std::vector<std::string>& command)
{
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("pipe2");
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);

    process = ::fork();
    if (process == 0) {
        // If the test crashes, the kernel kills this process.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(out[1], STDOUT_FILENO);
        ::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    input = in[1];
    output = out[0];
}

TestProcess::~TestProcess()
{
    closeInput();
    if (process > 0) {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }
    ::close(output);
}

std::optional<std::string> TestProcess::readLine(std::chrono::milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    for (;;) {
        if (const auto end = buffer.find('\n'); end != std::string::npos) {
            std::string line = buffer.substr(0, end);
            buffer.erase(0, end + 1);
            return line;
        }
        pollfd waiting{output, POLLIN, 0};
        if (::poll(&waiting, 1, millisecondsUntil(deadline)) <= 0)
            return std::nullopt;
        std::array<char, 4096> bytes{};
        const ssize_t length = ::read(output, bytes.data(), bytes.size());
        if (length <= 0)
            return std::nullopt;
        buffer.append(bytes.data(), static_cast<std::size_t>(length));
    }
}

bool TestProcess::waitForLine(const std::string& text, std::chrono::milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    while (const auto line = readLine(std::chrono::milliseconds(millisecondsUntil(deadline)))) {
        if (line->find(text) != std::string::npos)
            return true;
    }
    return false;
}

void TestProcess::closeInput()
{
    if (input >= 0)
        ::close(input);
    input = -1;
}

void TestProcess::signal(int number) const
{
    if (process > 0)
        ::kill(process, number);
}

std::optional<int> TestProcess::wait(std::chrono::milliseconds limit)
{
    const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
    pollfd waiting{descriptor, POLLIN, 0};
    const bool hasEnded =
        descriptor >= 0 && ::poll(&waiting, 1, static_cast<int>(limit.count())) == 1;
    ::close(descriptor);
    if (!hasEnded)
        return std::nullopt;
    int status = 0;
    ::waitpid(process, &status, 0);
    process = -1;
    return status;
}

bool runs(const std::vector<std::string>& command)
{
    TestProcess process(command);
    process.closeInput();
    return process.wait(std::chrono::seconds(10)) == 0;
}

} // namespace quillbox::dnssd
