#pragma once

#include <chrono>
#include <string>

#include <sys/types.h>

namespace quillbox::dnssd {

/// This program, even if its file has been replaced.
inline constexpr const char* kThisProgram = "/proc/self/exe";

/// The parent's side of an engine process: a packet socket, and reaping of the process.
class EngineChildProcess final {
public:
    /// Starts `executable`, which must call `runDnsSdEngineChild`. On failure `descriptor()` is -1.
    /// The process dies with the thread that started it, if not before.
    explicit EngineChildProcess(const std::string& executable);
    EngineChildProcess(const EngineChildProcess&) = delete;
    EngineChildProcess& operator=(const EngineChildProcess&) = delete;
    /// Kills the process, without goodbyes, if it is still running.
    ~EngineChildProcess();

    /// Non-blocking.
    int descriptor() const { return socket; }

    /// Asks the process to withdraw everything and exit; false when it has not within the limit.
    bool finish(std::chrono::milliseconds limit);

private:
    int socket = -1;
    pid_t process = -1;
};

} // namespace quillbox::dnssd
