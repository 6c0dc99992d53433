#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/engine/engine.h"
#include "platform/log.h"

#include <chrono>
#include <memory>
#include <string>

namespace quillbox::dnssd {

/// The programs that speak to Avahi, each in a process of its own: libavahi-client waits up to 25 s
/// for an answer, a packet from the network can make libavahi-core abort, and a process cannot use
/// both, because they define functions of the same names.
inline constexpr const char* kDaemonProgram = "quillbox-dns-sd-daemon";
inline constexpr const char* kResponderProgram = "quillbox-dns-sd-responder";

/// The path of one of them: in the folder of this program, as in a build, or else where it is
/// installed.
std::string engineProgram(const std::string& name);

struct EngineProcessOptions {
    std::string program; ///< a path
    std::string name;    ///< what the log calls the engine
    /// How long the process may say nothing: one that takes longer hangs, and is replaced. A call
    /// to avahi-daemon takes up to 25 s, after which libdbus gives up, and may begin when the next
    /// sign of life is nearly due.
    std::chrono::milliseconds patience{4 * kAliveInterval};
};

/// An engine that is another process, at the other end of a socket pair. When the process dies,
/// hangs or cannot be started, the engine goes down and starts another one: after 50 ms, and with
/// exponential backoff up to 30 s if it keeps dying within a second.
///
/// Opens the program's file at once, so that the process is of the same version as this one even if
/// an upgrade replaces the file. `queue` must be of a `DispatchPool`. `log` must outlive the
/// engine. The process ends with the thread of the queue, if not before.
std::unique_ptr<Engine> makeEngineProcess(std::shared_ptr<DispatchQueue> queue, Log& log,
                                          EngineProcessOptions options);

} // namespace quillbox::dnssd
