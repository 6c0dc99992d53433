#pragma once

#include <chrono>
#include <string>

#include <sys/types.h>

namespace quillbox::dnssd {

/// An engine process as its parent sees it: a socket of packets, and an end that leaves no zombie.
class EngineChildProcess final {
public:
    /// Starts `executable`, which calls `runDnsSdEngineChild`. When that cannot be had,
    /// `descriptor()` is -1. The process ends with the thread that starts it, if not earlier.
    explicit EngineChildProcess(const std::string& executable);
    EngineChildProcess(const EngineChildProcess&) = delete;
    EngineChildProcess& operator=(const EngineChildProcess&) = delete;
    /// Ends the process at once, without goodbyes, if it still runs.
    ~EngineChildProcess();

    /// Not blocking.
    int descriptor() const { return socket; }

    /// Lets the process withdraw and end; false when it has not within the time.
    bool finish(std::chrono::milliseconds limit);

private:
    int socket = -1;
    pid_t process = -1;
};

} // namespace quillbox::dnssd
