#include "platform/tcp/tcp_listener.h"

#include "platform/dispatch/fd_watcher.h"
#include "platform/dispatch/timer.h"
#include "platform/tcp/own_ports.h"
#include "platform/tcp/queue_object.h"
#include "platform/tcp/socket_calls.h"
#include "platform/tcp/tcp_connection.h"
#include "platform/values/socket_address.h"
#include "platform/values/standard_error.h"
#include "platform/values/text.h"

#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace quillbox {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kAcceptPause{200};

/// How long a listener waits until an earlier one of its service has closed its port: a relay that
/// is stopped and started again may have other work before its stop.
constexpr std::chrono::seconds kHandover{1};

/// A shortage within this time of the previous one is not reported again: a connection accepted in
/// between may have used up the resources again.
constexpr std::chrono::minutes kSameShortage{1};

/// Accepting a connection, and the dial that follows, takes as long as moving this many bytes. The
/// event loop's limit for these ends a turn after four connections, so that a flood of them does
/// not hold up sessions of this and other relays.
constexpr std::size_t kCostInBytes = 64UL * 1024;
constexpr int kAcceptAtOnce = 4;

/// Errors that concern only the connection being accepted (accept(2)), or that there is none;
/// accepting continues.
bool isOfOneConnection(int error)
{
    switch (error) {
    case EAGAIN:
    case EINTR:
    case ECONNABORTED:
    case EPROTO:
    case EPERM:
    case ENETDOWN:
    case ENOPROTOOPT:
    case EHOSTDOWN:
    case ENONET:
    case EHOSTUNREACH:
    case EOPNOTSUPP:
    case ENETUNREACH:
    case ETIMEDOUT:
        return true;
    default:
        return false;
    }
}

class TcpListener final : public QueueObject<TcpListener, Listener> {
public:
    /// `takesAnyPort`: the kernel has chosen the port.
    TcpListener(std::shared_ptr<TcpContext> context, ListeningPort port, bool takesAnyPort,
                bool allowsReuse)
        : context_(std::move(context)),
          port_(std::move(port)),
          takesAnyPort_(takesAnyPort),
          allowsReuse_(allowsReuse)
    {
    }

    void setService(ServiceRegistration service) override { service_ = std::move(service); }

    void setNewConnectionHandler(NewConnectionHandler handler) override
    {
        connectionHandler_ = std::move(handler);
    }

private:
    friend class QueueObject<TcpListener, Listener>;

    void open()
    {
        timer_.emplace(queue());
        isAwaitingPort_ = movesToServicePort() && awaitServicePort();
        if (!isAwaitingPort_)
            listen();
    }

    void close()
    {
        socket_.reset();
        port_ = {};
        registration_.reset();
        traffic_.reset();
        timer_.reset();
        // Its captures may own the listener.
        connectionHandler_ = nullptr;
    }

    void takeRegistration(const DnsSd::RegistrationUpdate& update)
    {
        if (isCancelled() || hasFailed_)
            return;
        using Registered = DnsSd::RegistrationUpdate::State;
        if (update.state == Registered::Failed)
            fail(update.error);
        else if (update.state == Registered::Waiting)
            report(State::Waiting, update.error);
        else
            report(State::Ready, {});
    }

    void fail(std::error_code error)
    {
        hasFailed_ = true;
        close();
        report(State::Failed, error);
    }

    void accept()
    {
        bool mayBeMore = socket_ != nullptr;
        for (int count = 0; mayBeMore && count < kAcceptAtOnce; ++count) {
            std::error_code error;
            SocketAddress client;
            const int descriptor = acceptStreamSocket(socket_->descriptor(), client, error);
            if (!error) {
                takeConnection(descriptor, client);
            } else if (!isOfOneConnection(error.value())) {
                pauseAccepting(error);
                return;
            }
            mayBeMore = socket_ && hasConnectionToAccept(socket_->descriptor());
        }
        if (mayBeMore)
            queue()->post([self = shared_from_this()] { self->accept(); });
        else if (socket_)
            socket_->waitReadable([self = shared_from_this()](const std::error_code& failure) {
                if (!failure)
                    self->accept();
            });
    }

    /// The handler may cancel or destroy the listener.
    void takeConnection(int descriptor, const SocketAddress& client)
    {
        queue()->loop().noteMoved(kCostInBytes);
        auto place = placeFor(descriptor, client);
        FileDescriptor socket(descriptor);
        if (!place) {
            tellShortage(lastRefusal_, "refusing connections of a host that has too many");
            resetOnClose(descriptor);
            return;
        }
        if (!connectionHandler_ || !traffic_)
            return;
        AcceptedSocket accepted{.place = std::move(place),
                                .socket = std::move(socket),
                                .client = client,
                                .session = CountedSession(traffic_)};
        auto handler = std::exchange(connectionHandler_, nullptr);
        handler(TcpConnection::make(context_, std::move(accepted)));
        if (socket_)
            connectionHandler_ = std::move(handler);
    }

    /// Few clients need the system call that tells whether they are on this computer.
    SocketLedger::Place placeFor(int descriptor, const SocketAddress& client)
    {
        auto place = context_->sockets->admit(client, false);
        if (place || !isOwn(descriptor, client))
            return place;
        return context_->sockets->admit(client, true);
    }

    /// Whether the client is on this computer: then it has the address that it connected to, or,
    /// with the loopback interface, one of 127.0.0.0/8.
    static bool isOwn(int descriptor, const SocketAddress& client)
    {
        return isLoopback(client) || isSameHost(client, localAddress(descriptor));
    }

    static void tellShortage(std::optional<Clock::time_point>& last, const std::string& text)
    {
        const auto now = Clock::now();
        const auto before = std::exchange(last, now);
        if (!before || now - *before > kSameShortage)
            printToStandardError("quillbox-helper: " + text);
    }

    /// Retries after a pause instead of waiting for events: the watch is edge-triggered and reports
    /// nothing for connections that are already in the backlog.
    void pauseAccepting(std::error_code error)
    {
        tellShortage(lastPause_, "cannot accept connections: " + error.message());
        if (!std::exchange(isAwaitingClose_, true))
            context_->sockets->afterNextClose([weak = weak_from_this()] {
                const auto self = weak.lock();
                if (!self)
                    return;
                self->queue()->post([self] {
                    self->isAwaitingClose_ = false;
                    self->endPause();
                });
            });
        isPausing_ = true;
        timer_->start(kAcceptPause, [self = shared_from_this()] { self->endPause(); });
    }

    void endPause()
    {
        if (!std::exchange(isPausing_, false) || !timer_)
            return;
        timer_->cancel();
        accept();
    }

    bool movesToServicePort() const { return takesAnyPort_ && service_.has_value(); }

    /// Whether an earlier listener of the service has not closed its port. Then calls `endWait`
    /// once it has, or after `kHandover`.
    bool awaitServicePort()
    {
        const auto isClosed = [weak = weak_from_this()] {
            if (const auto self = weak.lock())
                self->queue()->post([self] { self->endWait(); });
        };
        if (!context_->ownPorts.afterRemoval(service_->name, isClosed))
            return false;
        timer_->start(kHandover, [self = shared_from_this()] { self->endWait(); });
        return true;
    }

    void endWait()
    {
        if (!std::exchange(isAwaitingPort_, false) || isCancelled())
            return;
        timer_->cancel();
        listen();
    }

    void listen()
    {
        if (movesToServicePort()) {
            // Nobody knows the port that the kernel has chosen, so no connection is lost.
            if (auto better =
                    context_->ownPorts.openForService(service_->name, allowsReuse_, port_.number))
                std::swap(port_, *better);
            else
                port_.entry = context_->ownPorts.add(port_.number, service_->name);
            tellIfUnusual();
        }
        std::error_code error;
        socket_ = FdWatcher::adopt(queue(), port_.socket.release(), FdWatcher::For::Reading, error,
                                   std::move(port_.entry));
        if (error) {
            fail(error);
            return;
        }
        traffic_ = context_->traffic.add(service_ ? service_->name : std::string());
        if (service_)
            registration_ = context_->dnsSd.registerService(
                *service_, port_.number, queue(),
                [weak = weak_from_this()](const DnsSd::RegistrationUpdate& update) {
                    if (const auto self = weak.lock())
                        self->takeRegistration(update);
                });
        else
            report(State::Ready, {});
        queue()->post([self = shared_from_this()] { self->accept(); });
    }

    /// The line names no port, because the user has no use for one.
    void tellIfUnusual() const
    {
        if (port_.number == servicePorts(service_->name, ephemeralPorts()).front())
            return;
        printToStandardError("quillbox-helper: the usual port of " + inDoubleQuotes(service_->name)
                             + " is in use, so stored passwords and bookmarks do not lead to its "
                               "relay; to have it back, end the program that uses it and run "
                               "'quillbox-helper restart'");
    }

    const std::shared_ptr<TcpContext> context_;
    ListeningPort port_; ///< its socket until `listen`
    const bool takesAnyPort_;
    const bool allowsReuse_;
    std::optional<Timer> timer_;        ///< none before `start` and after `close`
    std::unique_ptr<FdWatcher> socket_; ///< null before `listen` and after `close`
    std::optional<ServiceRegistration> service_;
    NewConnectionHandler connectionHandler_;
    std::unique_ptr<DnsSd::Subscription> registration_;
    std::shared_ptr<TrafficCounter> traffic_; ///< null before `listen` and after `close`
    bool isAwaitingPort_ = false;
    bool hasFailed_ = false;
    std::optional<Clock::time_point> lastPause_;
    std::optional<Clock::time_point> lastRefusal_;
    bool isAwaitingClose_ = false;
    bool isPausing_ = false;
};

} // namespace

std::shared_ptr<Listener> makeTcpListener(std::shared_ptr<TcpContext> context,
                                          const TcpParameters& parameters, std::uint16_t port,
                                          std::error_code& error)
{
    auto opened = context->ownPorts.open(port, parameters.allowLocalEndpointReuse, error);
    if (!opened)
        return nullptr;
    return TcpListener::make(std::move(context), std::move(*opened), port == kAnyPort,
                             parameters.allowLocalEndpointReuse);
}

} // namespace quillbox
