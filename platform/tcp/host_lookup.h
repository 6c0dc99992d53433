#pragma once

#include "platform/net_service.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

namespace quillbox {

/// There is no host of that name.
std::error_code hostNotFound();

/// Asks the system's name service, which blocks, for as long as it likes, on a thread of its own.
/// Such a thread cannot be interrupted: it is left to itself when the program ends. All who ask for
/// one name at the same time share one. Thread-safe.
class HostLookup final : public std::enable_shared_from_this<HostLookup> {
public:
    using Done = std::function<void(const std::vector<SocketAddress>&, std::error_code)>;

    /// Calls `done` once, on any thread, with the addresses (port 0) in the system's order of
    /// preference, or with an error. It may do so before it returns.
    void lookUp(const std::string& name, Done done);

private:
    void finish(const std::string& name, const std::vector<SocketAddress>& addresses,
                std::error_code error);

    std::mutex mutex_;
    std::map<std::string, std::vector<Done>> pending_;
};

} // namespace quillbox
