#pragma once

#include "platform/posix/file_descriptor.h"
#include "platform/running_applications.h"

#include <QObject>
#include <QSocketNotifier>
#include <functional>
#include <string>

namespace quillbox {

/// Hears what other copies of this user's have to say, on the main thread, and never waits for any
/// of them: a line may come in pieces, and an answer go out in pieces. One who says or reads
/// nothing for some seconds is hung up on. While many are connected the next ones wait in the
/// socket's queue.
class CopyListener final : public QObject {
public:
    struct Handlers {
        std::function<void(const std::string& token)> activation;
        RunningApplications::MessageHandler message;
    };

    /// Takes the listening socket over. A handler may drop the listener.
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
