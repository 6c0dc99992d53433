#pragma once

#include "platform/desktop/instances/instance_protocol.h"
#include "platform/desktop/instances/registration.h"
#include "platform/running_applications.h"

#include <chrono>
#include <optional>
#include <string>

namespace quillbox {

/// Another running instance, to which this process speaks over its socket. The calls block, with a
/// limit, and need no event loop. They send nothing to a process of another user.
class InstanceClient final : public RunningApplication {
public:
    /// `activationToken` is the desktop's, to pass on; may be empty.
    InstanceClient(Registration found, std::string activationToken);

    std::int64_t processIdentifier() const override;
    std::optional<LaunchDate> launchDate() const override;
    bool isTerminated() const override;
    bool activate() override;
    std::optional<std::string> ask(const std::string& message,
                                   std::chrono::milliseconds limit) override;
    bool waitForEnd(std::chrono::milliseconds limit) override;

private:
    std::optional<std::string> exchange(const instance_protocol::Request& request,
                                        std::chrono::milliseconds limit);

    const Registration registration;
    const std::string token;
    FileDescriptor process; ///< a pidfd, set once the instance has been reached
};

} // namespace quillbox
