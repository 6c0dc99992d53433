#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace quillbox::dnssd {

/// A program that a test runs, with its input and output; it does not outlive the test.
class TestProcess final {
public:
    /// The first element is the program, found in PATH.
    explicit TestProcess(const std::vector<std::string>& command);
    TestProcess(const TestProcess&) = delete;
    TestProcess& operator=(const TestProcess&) = delete;
    ~TestProcess();

    /// The next line of its output, without the line break; nothing when none comes in time.
    std::optional<std::string> readLine(std::chrono::milliseconds limit);

    /// Reads lines until one contains `text`; false when none does in time.
    bool waitForLine(const std::string& text, std::chrono::milliseconds limit);

    void closeInput();
    void signal(int number) const;

    /// Waits for the end; its exit status, or nothing when it lives on.
    std::optional<int> wait(std::chrono::milliseconds limit);

    pid_t id() const { return process; }

private:
    pid_t process = -1;
    int input = -1;
    int output = -1;
    std::string buffer;
};

/// Runs a program to its end; true when it succeeded.
bool runs(const std::vector<std::string>& command);

} // namespace quillbox::dnssd
