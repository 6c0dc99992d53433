#pragma once

#include "platform/values/socket_address.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

namespace quillbox {

/// The error for a name without a host.
std::error_code hostNotFound();

/// Looks up host names by getaddrinfo(3), which may block for an unlimited time, on detached
/// threads. Such a thread cannot be interrupted and is abandoned when the program ends. Concurrent
/// lookups of the same name share a thread. Thread-safe.
class HostLookup final : public std::enable_shared_from_this<HostLookup> {
public:
    using Done = std::function<void(const std::vector<SocketAddress>&, std::error_code)>;

    /// Calls `done` once, on any thread, with the addresses (port 0) in the system's order of
    /// preference, or with an error; possibly inside this call.
    void lookUp(const std::string& name, Done done);

private:
    void finish(const std::string& name, const std::vector<SocketAddress>& addresses,
                std::error_code error);

    std::mutex mutex_;
    std::map<std::string, std::vector<Done>> pending_;
};

} // namespace quillbox
