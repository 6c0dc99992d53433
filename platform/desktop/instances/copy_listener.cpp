#include "platform/desktop/instances/copy_listener.h"

#include "platform/desktop/instances/copy_protocol.h"
#include "platform/desktop/instances/local_socket.h"

#include <QPointer>
#include <QTimer>
#include <array>
#include <cerrno>
#include <chrono>
#include <optional>
#include <utility>

#include <sys/socket.h>

namespace quillbox {

namespace {

using copy_protocol::kEndOfLine;

constexpr std::size_t kLongestLine =
    copy_protocol::kLongestPrefix + RunningApplication::kLongestMessage;
constexpr std::chrono::milliseconds kRequestLimit{2000};
constexpr std::chrono::milliseconds kAnswerLimit{35'000}; ///< for the message handler
constexpr std::chrono::milliseconds kSendLimit{5000};
constexpr std::chrono::milliseconds kAcceptPause{200};
constexpr qsizetype kMostClients = 32;

} // namespace

/// One connection: reads the request line, waits for the handler's answer, and writes it.
class CopyListener::Client final : public QObject {
public:
    Client(FileDescriptor connection, CopyListener& owner)
        : QObject(&owner),
          listener(owner),
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

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() override = default;

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
        if (line.find(kEndOfLine) == std::string::npos && line.size() <= kLongestLine)
            return;
        readable.setEnabled(false);
        // A valid client sends exactly one line before it has the answer. What else there may be,
        // or the missing end of a line that is too long, makes this no request.
        line.pop_back();
        take(copy_protocol::requestIn(line));
    }

    /// Must be the caller's last step: a handler may destroy the listener and with it this client.
    void take(const std::optional<copy_protocol::Request>& request)
    {
        using Kind = copy_protocol::Request::Kind;
        if (!request) {
            end();
        } else if (request->kind == Kind::Activation) {
            send(std::string(listener.handlers.hasDisplay ? copy_protocol::kActivated
                                                          : copy_protocol::kNoDisplay));
            // A copy: the handler may destroy the listener, which owns the original.
            if (const auto callback = listener.handlers.activation)
                callback(request->token);
        } else {
            limit.start(kAnswerLimit);
            isAsked = true;
            if (const auto callback = listener.handlers.message)
                callback({.text = request->text, .permission = request->token},
                         [self = QPointer(this)](const std::string& text) {
                             if (self)
                                 self->answer(text);
                         });
        }
    }

    void answer(const std::string& text)
    {
        if (!std::exchange(isAsked, false))
            return;
        if (auto answerLine = copy_protocol::answer(text))
            send(std::move(*answerLine));
        else
            end();
    }

    void send(std::string text)
    {
        unsent = std::move(text);
        unsent += kEndOfLine;
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
        readable.setEnabled(false);
        writable.setEnabled(false);
        limit.stop();
        socket.reset();
        deleteLater();
    }

    CopyListener& listener;
    FileDescriptor socket;
    QSocketNotifier readable;
    QSocketNotifier writable;
    QTimer limit;
    std::string line;
    bool isAsked = false; ///< waiting for the handler's answer
    std::string unsent;
    std::size_t sentCount = 0;
};

CopyListener::CopyListener(FileDescriptor listening, Handlers whenHeard)
    : socket(std::move(listening)),
      notifier(socket.get(), QSocketNotifier::Read),
      handlers(std::move(whenHeard))
{
    connect(&notifier, &QSocketNotifier::activated, this, [this] { accept(); });
}

void CopyListener::accept()
{
    FileDescriptor connection(
        ::accept4(socket.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!connection.isOpen()) {
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
            pause();
        return;
    }
    if (!isPeerOfSameUser(connection.get()))
        return;
    auto* client = new Client(std::move(connection), *this);
    // With the notifier as context, since ~CopyListener destroys it before the child clients.
    connect(client, &QObject::destroyed, &notifier, [this] { notifier.setEnabled(true); });
    if (children().size() >= kMostClients)
        notifier.setEnabled(false);
}

/// After a failed accept(), most likely for lack of file descriptors. The socket stays readable, so
/// an enabled notifier would spin.
void CopyListener::pause()
{
    notifier.setEnabled(false);
    QTimer::singleShot(kAcceptPause, this, [this] { notifier.setEnabled(true); });
}

} // namespace quillbox
