#include "platform/desktop/instances/instance_exchange.h"

#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>
#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#include <sys/socket.h>

namespace quillbox {

namespace {

using instance_protocol::kEndOfLine;

constexpr std::chrono::milliseconds kRequestLimit{2000};
constexpr std::chrono::milliseconds kAnswerLimit{35'000}; ///< for the handler
constexpr std::chrono::milliseconds kSendLimit{5000};
constexpr std::chrono::milliseconds kAcceptPause{200};
constexpr qsizetype kMostClients = 32;

/// One connection: reads the request line, waits for the handler's answer, and writes it.
class InstanceConnection final : public QObject {
public:
    /// Owned by the server, which owns the handler as well.
    InstanceConnection(FileDescriptor connection, const RequestHandler& whenAsked, QObject* server)
        : QObject(server),
          handler(whenAsked),
          socket(std::move(connection)),
          readable(socket.get(), QSocketNotifier::Read),
          writable(socket.get(), QSocketNotifier::Write)
    {
        writable.setEnabled(false);
        limit.setSingleShot(true);
        connect(&readable, &QSocketNotifier::activated, this, [this] { read(); });
        connect(&writable, &QSocketNotifier::activated, this, [this] { write(); });
        connect(&limit, &QTimer::timeout, this, [this] { end(); });
        limit.start(kRequestLimit);
    }

private:
    void read()
    {
        std::array<char, 4096> buffer{};
        const auto length = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
        if (length < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        if (length <= 0) {
            end();
            return;
        }
        line.append(buffer.data(), static_cast<std::size_t>(length));
        if (line.find(kEndOfLine) == std::string::npos
            && line.size() <= instance_protocol::kLongestRequest)
            return;
        readable.setEnabled(false);
        // A valid client sends exactly one line before it has the answer. What else there may be,
        // or the missing end of a line that is too long, makes this no request.
        line.pop_back();
        const auto request = instance_protocol::requestIn(line);
        if (!request) {
            end();
            return;
        }
        limit.start(kAnswerLimit);
        isAsked = true;
        // A copy: the handler may destroy the server, which owns the original and this client.
        const auto callback = handler;
        callback(*request, [self = QPointer(this)](const std::optional<std::string>& answer) {
            if (self && std::exchange(self->isAsked, false))
                self->send(answer);
        });
    }

    void send(const std::optional<std::string>& answer)
    {
        if (!answer) {
            end();
            return;
        }
        unsent = *answer + kEndOfLine;
        limit.start(kSendLimit);
        write();
    }

    void write()
    {
        while (sentCount < unsent.size()) {
            const auto length = ::send(socket.get(), unsent.data() + sentCount,
                                       unsent.size() - sentCount, MSG_NOSIGNAL);
            if (length > 0) {
                sentCount += static_cast<std::size_t>(length);
                continue;
            }
            if (length < 0 && errno == EINTR)
                continue;
            if (length < 0 && errno == EAGAIN) {
                writable.setEnabled(true);
                return;
            }
            break;
        }
        end();
    }

    void end()
    {
        isAsked = false;
        readable.setEnabled(false);
        writable.setEnabled(false);
        limit.stop();
        socket.reset();
        deleteLater();
    }

    const RequestHandler& handler;
    FileDescriptor socket;
    QSocketNotifier readable;
    QSocketNotifier writable;
    QTimer limit;
    std::string line;
    bool isAsked = false; ///< waiting for the handler's answer
    std::string unsent;
    std::size_t sentCount = 0;
};

class InstanceServer final : public QObject {
public:
    InstanceServer(FileDescriptor listening, RequestHandler whenAsked)
        : socket(std::move(listening)),
          notifier(socket.get(), QSocketNotifier::Read),
          handler(std::move(whenAsked))
    {
        connect(&notifier, &QSocketNotifier::activated, this, [this] { accept(); });
    }

private:
    void accept()
    {
        FileDescriptor connection(
            ::accept4(socket.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!connection.isOpen()) {
            if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED)
                return;
            // Most likely for lack of file descriptors. The socket stays readable, so an enabled
            // notifier would spin.
            notifier.setEnabled(false);
            QTimer::singleShot(kAcceptPause, this, [this] { notifier.setEnabled(true); });
            return;
        }
        if (!isPeerOfSameUser(connection.get()))
            return;
        auto* client = new InstanceConnection(std::move(connection), handler, this);
        // With the notifier as context, since ~InstanceServer destroys it before the child clients.
        connect(client, &QObject::destroyed, &notifier, [this] { notifier.setEnabled(true); });
        if (children().size() >= kMostClients)
            notifier.setEnabled(false);
    }

    FileDescriptor socket;
    QSocketNotifier notifier;
    const RequestHandler handler;
};

} // namespace

std::unique_ptr<QObject> serveInstances(FileDescriptor listening, RequestHandler whenAsked)
{
    return std::make_unique<InstanceServer>(std::move(listening), std::move(whenAsked));
}

} // namespace quillbox
