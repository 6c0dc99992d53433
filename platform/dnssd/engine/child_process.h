#pragma once

#include "platform/posix/file_descriptor.h"

#include <chrono>
#include <string>
#include <system_error>
#include <utility>

#include <sys/types.h>

namespace quillbox::dnssd {

/// The descriptors that an engine process starts with, beside the standard ones: its end of the
/// socket pair, and its program, which it closes.
inline constexpr int kSocketOfChild = 3;
inline constexpr int kProgramOfChild = 4;

/// Opens a program for `ChildProcess`. Empty if there is none.
FileDescriptor openProgram(const std::string& path);

/// A child process with a socket for packets (SOCK_SEQPACKET) to it.
class ChildProcess final {
public:
    /// On failure sets `error`. `name` is the first argument of the process, the only one. The
    /// process gets a signal when the thread that started it ends, if it asks for that (prctl(2),
    /// PR_SET_PDEATHSIG).
    ChildProcess(const FileDescriptor& program, std::string name, std::error_code& error);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    /// Kills the process if it is still running.
    ~ChildProcess() { kill(); }

    /// The non-blocking socket to the process; the caller takes it over.
    FileDescriptor takeSocket() { return std::move(socket); }

    /// Asks the process to end, by closing the `socket` for sending, and waits. Kills it when it is
    /// still running after `limit`.
    void finish(int socket, std::chrono::milliseconds limit);

    void kill();

private:
    void reap();

    FileDescriptor socket;
    pid_t process = -1;
};

} // namespace quillbox::dnssd
