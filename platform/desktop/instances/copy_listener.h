#pragma once

#include "platform/posix/file_descriptor.h"
#include "platform/running_applications.h"

#include <QObject>
#include <QSocketNotifier>
#include <functional>
#include <string>

namespace quillbox {

/// Serves the requests of the same user's other running copies, on the main thread and without
/// blocking: requests may arrive and answers leave in pieces. A client that takes more than some
/// seconds to send its request or to read the answer is disconnected. While the maximum number of
/// clients is connected, further ones wait in the socket's backlog.
class CopyListener final : public QObject {
public:
    struct Handlers {
        bool hasDisplay = true; ///< told to who activates this copy
        std::function<void(const std::string& token)> activation;
        RunningApplications::MessageHandler message;
    };

    /// Takes ownership of the listening socket. A handler may destroy the listener.
    CopyListener(FileDescriptor listening, Handlers whenHeard);

    CopyListener(const CopyListener&) = delete;
    CopyListener& operator=(const CopyListener&) = delete;
    ~CopyListener() override = default;

private:
    class Client;

    void accept();
    void pause();

    FileDescriptor socket;
    QSocketNotifier notifier;
    const Handlers handlers;
};

} // namespace quillbox
