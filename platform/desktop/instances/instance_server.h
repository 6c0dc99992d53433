#pragma once

#include "platform/desktop/instances/instance_protocol.h"
#include "platform/posix/file_descriptor.h"

#include <QObject>
#include <QSocketNotifier>
#include <functional>
#include <optional>
#include <string>

namespace quillbox {

/// Serves the requests of the same user's other instances, on the main thread and without blocking:
/// requests may arrive and answers leave in pieces. A client that takes more than some seconds to
/// send its request or to read the answer is disconnected. While the maximum number of clients is
/// connected, further ones wait in the socket's backlog.
class InstanceServer final : public QObject {
public:
    /// Answers with a line without its terminator, or hangs up. May be called at any time, even
    /// after the client or the server has gone; only the first call counts.
    using Answer = std::function<void(const std::optional<std::string>& line)>;
    using Handler =
        std::function<void(const instance_protocol::Request& request, const Answer& answer)>;

    /// Takes ownership of the listening socket. The handler may destroy the server.
    InstanceServer(FileDescriptor listening, Handler whenAsked);

    InstanceServer(const InstanceServer&) = delete;
    InstanceServer& operator=(const InstanceServer&) = delete;
    ~InstanceServer() override = default;

private:
    class Client;

    void accept();

    FileDescriptor socket;
    QSocketNotifier notifier;
    const Handler handler;
};

} // namespace quillbox
