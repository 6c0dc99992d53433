#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// The launch of a copy of this application.
struct Launch {
    /// On the boot-time clock: comparable between processes, never set back. None if it is unknown.
    std::optional<std::chrono::nanoseconds> date = {};

    /// As that process sees it. In another PID namespace, such as that of another Flatpak, another
    /// process may have the same one.
    std::int64_t processIdentifier = 0;

    bool operator==(const Launch&) const = default;
};

/// Another running copy of this application.
class RunningApplication {
public:
    virtual ~RunningApplication() = default;

    virtual Launch launch() const = 0;

    virtual bool isTerminated() const = 0;

    /// Asks that copy to bring all its windows to the front, and waits for its answer, but only
    /// briefly. False if it answers that it has none, because it runs without a display.
    virtual bool activate() = 0;

    /// Sends a message (one line without its newline, at most `kLongestMessage` bytes) and blocks
    /// until the answer arrives. None if there is no answer within `limit`: that copy hangs, is
    /// about to exit, or does not support messages.
    virtual std::optional<std::string> ask(const std::string& message,
                                           std::chrono::milliseconds limit) = 0;

    /// Waits until the process that the last `activate` or `ask` reached has exited, or, where the
    /// kernel does not name that process (before Linux 6.5 one of another PID namespace), until its
    /// registration is gone, which may be a moment earlier; returns whether that happened within
    /// `limit`.
    virtual bool waitForEnd(std::chrono::milliseconds limit) = 0;

    static constexpr std::size_t kLongestMessage = 8192;
    static constexpr std::size_t kLongestAnswer = std::size_t{2} * 1024 * 1024;
};

/// A message from another process of the same user to this copy.
struct CopyMessage {
    std::string text;       ///< one line without its newline
    std::string permission; ///< the sender's activation token from the desktop; may be empty
};

/// The running copies of this application. Used on the main thread.
class RunningApplications {
public:
    using ActivationHandler = std::function<void(const std::string& permission)>;

    /// Answers a message with one line without its newline, at most `kLongestAnswer` bytes. May be
    /// called at any time on the main thread, even after the sender stopped waiting; only the first
    /// call counts.
    using Answer = std::function<void(const std::string& text)>;
    using MessageHandler = std::function<void(const CopyMessage& message, const Answer& answer)>;

    virtual ~RunningApplications() = default;

    /// That of this process; without a date if the process could not be registered.
    virtual Launch launch() const = 0;

    /// The other copies, in the order of their registration.
    virtual std::vector<std::shared_ptr<RunningApplication>> others() = 0;

    /// Serves the others from now on; those that have asked before are waiting. Called once.
    /// `activated` is called on the main thread whenever another copy activates this one, with the
    /// activation token that the desktop gave that copy, or an empty string; `told` with each
    /// message to this copy. Senders wait for the answer at most 30 seconds. Both may destroy this
    /// object.
    virtual void serve(ActivationHandler activated, MessageHandler told) = 0;

    /// Unregisters this copy, so that a copy started from now on does not yield to it, and ends
    /// `serve`.
    virtual void withdraw() = 0;
};

} // namespace quillbox
