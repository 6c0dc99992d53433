#include "platform/tcp/tcp_listener.h"

#include "platform/dispatch/timer.h"
#include "platform/standard_error.h"
#include "platform/tcp/dialable_address.h"
#include "platform/tcp/listening_port.h"
#include "platform/tcp/service_port.h"
#include "platform/tcp/socket.h"
#include "platform/tcp/socket_calls.h"
#include "platform/tcp/tcp_connection.h"
#include "platform/text.h"

#include <cassert>
#include <cerrno>
#include <chrono>
#include <functional>
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

/// Errors that concern only the connection being accepted (accept(2)); accepting continues.
bool isOfOneConnection(int error)
{
    switch (error) {
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

/// The implementation of a listener, used on its queue. Pending work keeps it alive. It has no
/// reference to its owner except through the owner's handlers.
class ListenerCore final : public std::enable_shared_from_this<ListenerCore> {
public:
    /// `takesAnyPort`: the kernel has chosen the port.
    ListenerCore(std::shared_ptr<TcpContext> context, std::unique_ptr<ListeningPort> port,
                 bool takesAnyPort, bool allowsReuse)
        : context_(std::move(context)),
          port_(std::move(port)),
          takesAnyPort_(takesAnyPort),
          allowsReuse_(allowsReuse),
          timer_(context_->pool)
    {
    }

    ListenerCore(const ListenerCore&) = delete;
    ListenerCore& operator=(const ListenerCore&) = delete;

    void setService(ServiceRegistration service) { service_ = std::move(service); }

    void setNewConnectionHandler(Listener::NewConnectionHandler handler)
    {
        connectionHandler_ = std::move(handler);
    }

    void setStateUpdateHandler(Listener::StateUpdateHandler handler)
    {
        stateHandler_ = std::move(handler);
    }

    void start(std::shared_ptr<DispatchQueue> queue)
    {
        assert(queue_ == nullptr);
        queue_ = std::move(queue);
        if (isCancelled_) {
            reportCancelled();
            return;
        }
        isAwaitingPort_ = movesToServicePort() && awaitServicePort();
        if (!isAwaitingPort_)
            open();
    }

    void cancel()
    {
        if (std::exchange(isCancelled_, true))
            return;
        close();
        if (queue_)
            reportCancelled();
    }

    /// Called on any thread when the owner is destroyed.
    void abandon()
    {
        if (!queue_) {
            close();
            return;
        }
        post([self = shared_from_this()] {
            self->stateHandler_ = nullptr;
            self->isCancelled_ = true;
            self->close();
        });
    }

private:
    template <typename Work> void post(Work work) { strandOf(*queue_).post(std::move(work)); }

    /// Reports a state only if it or its error has changed.
    void report(Listener::State state, std::error_code error)
    {
        const auto report = std::pair(state, error);
        if (std::exchange(lastReport_, report) == report)
            return;
        post([self = shared_from_this(), state, error] {
            if (self->stateHandler_)
                self->stateHandler_(state, error);
        });
    }

    void reportCancelled()
    {
        post([self = shared_from_this()] {
            if (const auto handler = std::exchange(self->stateHandler_, nullptr))
                handler(Listener::State::Cancelled, {});
        });
    }

    void takeRegistration(const DnsSd::RegistrationUpdate& update)
    {
        if (isCancelled_ || hasFailed_)
            return;
        switch (update.state) {
        case DnsSd::RegistrationUpdate::State::Waiting:
            report(Listener::State::Waiting, update.error);
            return;
        case DnsSd::RegistrationUpdate::State::Ready:
            report(Listener::State::Ready, {});
            return;
        case DnsSd::RegistrationUpdate::State::Failed:
            hasFailed_ = true;
            close();
            report(Listener::State::Failed, update.error);
            return;
        }
    }

    void accept()
    {
        for (int count = 0; port_ && count < kAcceptAtOnce; ++count) {
            std::error_code error;
            SocketAddress client;
            const int descriptor = acceptStreamSocket(port_->socket().descriptor(), client, error);
            if (!error) {
                takeConnection(descriptor, std::move(client));
            } else if (error == std::errc::operation_would_block) {
                port_->socket().waitReadable(
                    strandOf(*queue_), [self = shared_from_this()](const std::error_code& failure) {
                        if (!failure)
                            self->accept();
                    });
                return;
            } else if (!isOfOneConnection(error.value())) {
                pauseAccepting(error);
                return;
            }
        }
        if (port_)
            post(std::bind_front(&ListenerCore::accept, shared_from_this()));
    }

    /// The handler may cancel or destroy the listener.
    void takeConnection(int descriptor, SocketAddress client)
    {
        context_->pool->noteMoved(kCostInBytes);
        auto place = placeFor(descriptor, client);
        if (!place) {
            tellShortage(lastRefusal_, "refusing connections of a host that has too many");
            resetOnClose(descriptor);
        }
        const bool isAdmitted = place.has_value();
        auto socket = Socket::adopt(context_->pool, descriptor, std::move(place));
        if (!isAdmitted || !socket || !connectionHandler_ || !traffic_)
            return;
        const auto handler = connectionHandler_;
        handler(makeAcceptedConnection(context_, std::move(socket), std::move(client),
                                       std::make_unique<CountedSession>(traffic_)));
    }

    /// Few clients need the system call that tells whether they are on this computer.
    std::optional<SocketLedger::Place> placeFor(int descriptor, const SocketAddress& client)
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
                self->post([self] {
                    self->isAwaitingClose_ = false;
                    self->endPause();
                });
            });
        isPausing_ = true;
        timer_.start(strandOf(*queue_), kAcceptPause,
                     [self = shared_from_this()] { self->endPause(); });
    }

    void endPause()
    {
        timer_.cancel();
        if (std::exchange(isPausing_, false))
            accept();
    }

    void close()
    {
        port_.reset();
        registration_.reset();
        traffic_.reset();
        timer_.cancel();
        // Its captures may own the listener.
        connectionHandler_ = nullptr;
    }

    bool movesToServicePort() const { return takesAnyPort_ && service_.has_value(); }

    /// Whether an earlier listener of the service has not closed its port. Then calls `endWait`
    /// once it has, or after `kHandover`.
    bool awaitServicePort()
    {
        const auto isClosed = [weak = weak_from_this()] {
            if (const auto self = weak.lock())
                self->post([self] { self->endWait(); });
        };
        if (!context_->ownPorts.afterRemoval(service_->name, isClosed))
            return false;
        timer_.start(strandOf(*queue_), kHandover,
                     [self = shared_from_this()] { self->endWait(); });
        return true;
    }

    void endWait()
    {
        if (!std::exchange(isAwaitingPort_, false) || isCancelled_)
            return;
        timer_.cancel();
        open();
    }

    void open()
    {
        if (movesToServicePort()) {
            // Nobody knows the port that the kernel has chosen, so no connection is lost.
            if (auto better =
                    ListeningPort::openForService(context_, service_->name, allowsReuse_, *port_))
                port_ = std::move(better);
            else
                port_->setService(service_->name);
            tellIfUnusual();
        }
        traffic_ = context_->traffic.add(service_ ? service_->name : std::string());
        if (service_)
            registration_ = context_->dnsSd.registerService(
                *service_, port_->number(), queue_,
                [weak = weak_from_this()](const DnsSd::RegistrationUpdate& update) {
                    if (const auto self = weak.lock())
                        self->takeRegistration(update);
                });
        else
            report(Listener::State::Ready, {});
        post([self = shared_from_this()] { self->accept(); });
    }

    /// The line names no port, because the user has no use for one.
    void tellIfUnusual() const
    {
        if (port_->number() == servicePorts(service_->name, ephemeralPorts()).front())
            return;
        printToStandardError("quillbox-helper: the usual port of " + inDoubleQuotes(service_->name)
                             + " is in use, so stored passwords and bookmarks do not lead to its "
                               "relay; to have it back, end the program that uses it and run "
                               "'quillbox-helper restart'");
    }

    const std::shared_ptr<TcpContext> context_;
    std::unique_ptr<ListeningPort> port_; ///< null after it was closed
    const bool takesAnyPort_;
    const bool allowsReuse_;
    Timer timer_;
    std::shared_ptr<DispatchQueue> queue_;
    std::optional<ServiceRegistration> service_;
    Listener::NewConnectionHandler connectionHandler_;
    Listener::StateUpdateHandler stateHandler_;
    std::unique_ptr<DnsSd::Ask> registration_;
    std::shared_ptr<TrafficCounter> traffic_; ///< null before `start` and after `close`
    std::optional<std::pair<Listener::State, std::error_code>> lastReport_;
    bool isAwaitingPort_ = false;
    bool isCancelled_ = false;
    bool hasFailed_ = false;
    std::optional<Clock::time_point> lastPause_;
    std::optional<Clock::time_point> lastRefusal_;
    bool isAwaitingClose_ = false;
    bool isPausing_ = false;
};

class TcpListener final : public Listener {
public:
    explicit TcpListener(std::shared_ptr<ListenerCore> core) : core_(std::move(core)) {}
    ~TcpListener() override { core_->abandon(); }

    TcpListener(const TcpListener&) = delete;
    TcpListener& operator=(const TcpListener&) = delete;

    void setService(ServiceRegistration service) override { core_->setService(std::move(service)); }

    void setNewConnectionHandler(NewConnectionHandler handler) override
    {
        core_->setNewConnectionHandler(std::move(handler));
    }

    void setStateUpdateHandler(StateUpdateHandler handler) override
    {
        core_->setStateUpdateHandler(std::move(handler));
    }

    void start(std::shared_ptr<DispatchQueue> queue) override { core_->start(std::move(queue)); }

    void cancel() override { core_->cancel(); }

private:
    const std::shared_ptr<ListenerCore> core_;
};

} // namespace

std::shared_ptr<Listener> makeTcpListener(std::shared_ptr<TcpContext> context,
                                          const TcpParameters& parameters, std::uint16_t port,
                                          std::error_code& error)
{
    auto opened = ListeningPort::open(context, port, parameters.allowLocalEndpointReuse, error);
    if (!opened)
        return nullptr;
    return std::make_shared<TcpListener>(
        std::make_shared<ListenerCore>(std::move(context), std::move(opened), port == kAnyPort,
                                       parameters.allowLocalEndpointReuse));
}

} // namespace quillbox
