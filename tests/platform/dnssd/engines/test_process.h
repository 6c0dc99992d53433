#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace quillbox::dnssd {

/// A child process with pipes for its standard input and output. The destructor kills it.
class TestProcess final {
public:
    /// The first element is the program, looked up in PATH.
    explicit TestProcess(const std::vector<std::string>& command);
    TestProcess(const TestProcess&) = delete;
    TestProcess& operator=(const TestProcess&) = delete;
    ~TestProcess();

    /// The next line of its output, without the line break; nothing on timeout or at the end of the
    /// output.
    std::optional<std::string> readLine(std::chrono::milliseconds limit);

    /// Reads lines until one contains `text`; false on timeout or at the end of the output.
    bool waitForLine(const std::string& text, std::chrono::milliseconds limit);

    void closeInput();
    void signal(int number) const;

    /// Waits for the process to exit; its status as of waitpid(2), or nothing on timeout.
    std::optional<int> wait(std::chrono::milliseconds limit);

    pid_t id() const { return process; }

private:
    pid_t process = -1;
    int input = -1;
    int output = -1;
    std::string buffer;
};

/// Runs a program for at most 10 s; whether it exits with 0.
bool runs(const std::vector<std::string>& command);

} // namespace quillbox::dnssd
