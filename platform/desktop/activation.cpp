#include "platform/desktop/activation.h"

#include "platform/desktop/local_socket.h"

#include <QTimer>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <optional>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

constexpr std::string_view kRequest = "activate";
constexpr std::string_view kAnswer = "ok\n";
constexpr std::size_t kLongestToken = 400;
constexpr std::size_t kLongestLine = 512;
constexpr std::chrono::milliseconds kAnswerLimit{1000};
constexpr std::chrono::milliseconds kRequestLimit{2000};
constexpr std::chrono::milliseconds kAcceptPause{200};
constexpr qsizetype kMostClients = 32;

/// The token of a request line without its end; none when it is no request.
std::optional<std::string> tokenIn(std::string_view line)
{
    if (!line.starts_with(kRequest))
        return std::nullopt;
    line.remove_prefix(kRequest.size());
    if (line.empty())
        return std::string();
    if (line.front() != ' ' || !isActivationToken(line.substr(1)))
        return std::nullopt;
    return std::string(line.substr(1));
}

} // namespace

std::string activationTokenOfEnvironment()
{
    for (const char* name : {"XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID"}) {
        std::string token = qgetenv(name).toStdString();
        if (isActivationToken(token))
            return token;
    }
    return {};
}

bool isActivationToken(std::string_view text)
{
    return !text.empty() && text.size() <= kLongestToken
           && std::all_of(text.begin(), text.end(),
                          [](char character) { return character > ' ' && character < '\x7f'; });
}

void requestActivation(int connection, const std::string& token)
{
    if (!isPeerOfSameUser(connection))
        return;
    std::string line(kRequest);
    if (isActivationToken(token))
        line += ' ' + token;
    line += '\n';
    // A fresh socket's buffer has room for one line.
    if (::send(connection, line.data(), line.size(), MSG_NOSIGNAL) < 0)
        return;
    // Whatever the answer is, even the end of the connection: the other copy has read the request.
    pollfd waiting{connection, POLLIN, 0};
    const auto deadline = std::chrono::steady_clock::now() + kAnswerLimit;
    auto left = kAnswerLimit;
    while (::poll(&waiting, 1, static_cast<int>(left.count())) < 0 && errno == EINTR) {
        left = std::chrono::ceil<std::chrono::milliseconds>(deadline
                                                            - std::chrono::steady_clock::now());
        if (left <= std::chrono::milliseconds::zero())
            return;
    }
}

/// One connection, read until its line is complete, too long, late or ended.
class ActivationListener::Client final : public QObject {
public:
    Client(FileDescriptor connection, ActivationListener& owner)
        : QObject(&owner),
          listener(owner),
          socket(std::move(connection)),
          notifier(socket.get(), QSocketNotifier::Read)
    {
        connect(&notifier, &QSocketNotifier::activated, this, [this] { read(); });
        QTimer::singleShot(kRequestLimit, this, [this] { end(); });
    }

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() override = default;

private:
    void read()
    {
        std::array<char, kLongestLine> buffer{};
        const auto length = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
        if (length < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        if (length <= 0) {
            end();
            return;
        }
        line.append(buffer.data(), static_cast<std::size_t>(length));
        const auto lineEnd = line.find('\n');
        if (lineEnd == std::string::npos && line.size() < kLongestLine)
            return;
        const auto token = tokenIn(std::string_view(line).substr(0, lineEnd));
        if (token)
            ::send(socket.get(), kAnswer.data(), kAnswer.size(), MSG_NOSIGNAL);
        end();
        // A copy: whoever is told may drop the listener.
        if (const auto callback = listener.requested; token && callback)
            callback(*token);
    }

    void end()
    {
        notifier.setEnabled(false);
        socket.reset();
        deleteLater();
    }

    ActivationListener& listener;
    FileDescriptor socket;
    QSocketNotifier notifier;
    std::string line;
};

ActivationListener::ActivationListener(FileDescriptor listening, Requested whenRequested)
    : socket(std::move(listening)),
      notifier(socket.get(), QSocketNotifier::Read),
      requested(std::move(whenRequested))
{
    connect(&notifier, &QSocketNotifier::activated, this, [this] { accept(); });
}

void ActivationListener::accept()
{
    FileDescriptor connection(
        ::accept4(socket.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!connection.isOpen()) {
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
            pause();
        return;
    }
    if (!isPeerOfSameUser(connection.get()) || children().size() >= kMostClients)
        return;
    new Client(std::move(connection), *this);
}

/// Out of descriptors, most likely. The connection stays readable, so that listening on would spin.
void ActivationListener::pause()
{
    notifier.setEnabled(false);
    QTimer::singleShot(kAcceptPause, this, [this] { notifier.setEnabled(true); });
}

} // namespace quillbox
