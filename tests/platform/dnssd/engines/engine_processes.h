#pragma once

#include "platform/dnssd/engine/message_codec.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace quillbox::dnssd {

/// The processes whose parent is `parent`.
std::vector<pid_t> childrenOf(pid_t parent);

/// The engine processes among the children of `parent`.
std::vector<pid_t> engineProcessesOf(pid_t parent);

/// The engine process that `parent` has started; nothing unless there is exactly one.
std::optional<pid_t> engineProcessOf(pid_t parent);

/// Waits for the exit of a process, which need not be a child of this one.
bool waitForEnd(pid_t process, std::chrono::milliseconds limit);

/// A line of /proc/PID/status.
std::string statusLine(pid_t process, const std::string& name);

/// An engine process connected to the test instead of to an engine.
class BareProcess final {
public:
    /// `program` is one of the names in `engine_process.h`.
    explicit BareProcess(const std::string& program);
    BareProcess(const BareProcess&) = delete;
    BareProcess& operator=(const BareProcess&) = delete;
    ~BareProcess();

    /// Its next message; nothing once it has ended, or after the limit.
    std::optional<Message<Event>>
    next(std::chrono::milliseconds limit = std::chrono::seconds(8)) const;

    /// Its next message that is neither Alive nor EngineDown.
    std::optional<Message<Event>> nextAnswer() const;

    bool send(std::string_view bytes) const;
    bool send(Generation generation, const Request& request) const;

    /// Waits for its end, and returns its exit status.
    std::optional<int> exitStatus();

private:
    pid_t process = -1;
    int socket = -1;
};

} // namespace quillbox::dnssd
