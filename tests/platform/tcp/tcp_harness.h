#pragma once

#include "platform/dial/tcp_network.h"
#include "platform/dispatch/dispatch_pool.h"
#include "platform/network_monitor.h"
#include "tests/fakes/fake_dns_sd.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <unistd.h>

namespace quillbox {

inline const ServiceEndpoint kPhone{.name = "Phone", .type = "_quillbox._tcp", .domain = "local"};

/// How long a test waits for something that must happen.
inline constexpr std::chrono::seconds kPatience{20};

/// How long a test waits to see that something does not happen.
inline constexpr std::chrono::milliseconds kWatch{200};

/// A monitor with addresses and change notifications set by the test. Thread-safe.
class ScriptedMonitor final : public NetworkMonitor {
public:
    std::vector<InterfaceAddress> addresses() const override;
    /// As set; `Preferred` for every other address.
    OutgoingRoute routeThrough(int interfaceIndex, const SocketAddress& address) const override;
    std::unique_ptr<Subscription> subscribe(std::shared_ptr<DispatchQueue> queue,
                                            std::function<void()> changed) override;

    void setAddresses(std::vector<InterfaceAddress> addresses);
    /// What lookups of a route find, one after another; the last one from then on. The port of the
    /// address is ignored.
    void setRoutes(int interfaceIndex, const SocketAddress& address,
                   std::vector<OutgoingRoute> inTurn);
    /// Lets lookups of routes take so long, as on a busy computer.
    void slowDown(std::chrono::milliseconds time);
    void tellChange();
    std::size_t subscriberCount() const;

private:
    struct Subscriber {
        std::shared_ptr<DispatchQueue> queue;
        std::function<void()> changed;
    };
    class Held;

    mutable std::mutex mutex_;
    std::vector<InterfaceAddress> addresses_;
    mutable std::map<std::pair<int, SocketAddress>, std::vector<OutgoingRoute>> routes_;
    std::chrono::milliseconds lookupTime_{0};
    std::vector<std::weak_ptr<Subscriber>> subscribers_;
};

/// A plain socket of a peer, independent of the code under test. Calls block for at most
/// `kPatience`.
class Peer final {
public:
    explicit Peer(int descriptor);
    ~Peer();

    Peer(Peer&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Peer& operator=(Peer&&) = delete;

    int descriptor() const { return descriptor_; }

    /// Sends all bytes; false on an error.
    bool send(std::string_view bytes) const;

    /// Receives up to `most` bytes; empty at the end of the stream and after an error.
    std::string receive(std::size_t most) const;

    /// Receives until the end of the stream or an error. `isClean` is false after an error.
    std::string receiveAll(bool& isClean) const;

    /// Receives `count` bytes, or fewer if the stream ends or fails before.
    std::string receiveExactly(std::size_t count) const;

    void shutDownSending() const;

    /// Waits until the other side's kernel has acknowledged all data sent; false on timeout.
    bool waitUntilAcknowledged() const;

    /// Closes the connection with a reset (RST).
    void reset();
    void close();

private:
    int descriptor_;
};

/// A peer that listens on a loopback address.
class PeerListener final {
public:
    explicit PeerListener(const std::string& address = "127.0.0.1", int backlog = 16);
    ~PeerListener();

    PeerListener(const PeerListener&) = delete;
    PeerListener& operator=(const PeerListener&) = delete;

    std::uint16_t port() const { return port_; }
    SocketAddress address() const { return address_; }
    Peer accept() const;

    /// Waits until there is a connection to accept; false on timeout.
    bool isConnectedTo(std::chrono::milliseconds limit) const;
    void setBacklog(int backlog) const;
    void close();

private:
    int descriptor_;
    SocketAddress address_;
    std::uint16_t port_ = 0;
};

/// A loopback address that does not answer: its listener's accept queue is full, so the kernel
/// drops connection requests silently.
class SilentAddress final {
public:
    /// The number of file descriptors that it holds.
    static constexpr std::size_t kDescriptors = 4;

    explicit SilentAddress(const std::string& address);

    SocketAddress address() const { return listener_.address(); }
    std::uint16_t port() const { return listener_.port(); }

    /// Answers the requests that come from now on.
    void answer() const { listener_.setBacklog(16); }

private:
    PeerListener listener_;
    std::vector<Peer> fillers_;
};

/// Connects to the port on 127.0.0.1, from that address of this computer.
Peer connectPeer(std::uint16_t port, const std::string& from = "127.0.0.1");

/// The result of a receive.
struct Received {
    std::string bytes;
    bool isComplete = false;
    std::error_code error;
};

/// Records the state updates of a connection or listener, and waits for them. Thread-safe.
template <typename State> class StateLog final {
public:
    struct Report {
        State state;
        std::error_code error;
    };

    void note(State state, std::error_code error)
    {
        const std::lock_guard lock(mutex_);
        reports_.push_back({state, error});
        changed_.notify_all();
    }

    bool waitFor(State state, std::chrono::milliseconds limit = kPatience)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return countOf(state) > 0; });
    }

    std::size_t count(State state)
    {
        const std::lock_guard lock(mutex_);
        return countOf(state);
    }

    std::error_code errorOf(State state)
    {
        const std::lock_guard lock(mutex_);
        for (const auto& report : reports_) {
            if (report.state == state)
                return report.error;
        }
        return {};
    }

    std::vector<State> states()
    {
        const std::lock_guard lock(mutex_);
        std::vector<State> result;
        for (const auto& report : reports_)
            result.push_back(report.state);
        return result;
    }

private:
    std::size_t countOf(State state) const
    {
        std::size_t count = 0;
        for (const auto& report : reports_)
            count += report.state == state ? 1 : 0;
        return count;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Report> reports_;
};

/// A connection under test. Makes calls on its queue and returns the results as futures.
class Subject final {
public:
    Subject(std::shared_ptr<Connection> connection, std::shared_ptr<DispatchQueue> queue);

    void start();
    std::future<Received> receive(std::size_t minimum = 1,
                                  std::size_t maximum = kMaximumContentSize);
    std::future<std::error_code> send(std::string bytes);
    void cancel();

    /// Releases the connection without cancelling it.
    void drop();

    /// Waits until the queue has run all pending work, and the work which that submits.
    void settle();

    const std::shared_ptr<Connection>& connection() const { return connection_; }
    const std::shared_ptr<DispatchQueue>& queue() const { return queue_; }

    const std::shared_ptr<StateLog<Connection::State>> log =
        std::make_shared<StateLog<Connection::State>>();

private:
    std::shared_ptr<Connection> connection_;
    const std::shared_ptr<DispatchQueue> queue_;
};

/// A `TcpNetwork` with a scripted DNS-SD and network monitor. Pending work is dropped with it.
class Harness final {
public:
    Harness();
    ~Harness();

    Harness(const Harness&) = delete;
    Harness& operator=(const Harness&) = delete;

    std::shared_ptr<DispatchQueue> makeQueue();

    /// Starts a listener; `nextAccepted` returns the connections that it accepts.
    std::shared_ptr<Listener> listen();
    std::uint16_t listeningPort() const { return listeningPort_; }
    std::size_t acceptedCount();
    bool waitForAccepted(std::size_t count, std::chrono::milliseconds limit = kPatience);

    /// The next accepted connection, not started yet; throws if none arrives within `kPatience`.
    std::shared_ptr<Connection> nextAccepted();

    /// An accepted connection in the Ready state, and its peer.
    std::pair<Subject, Peer> acceptedPair();

    Subject dial(const Endpoint& endpoint, const TcpParameters& parameters = {});
    Subject dial(const std::string& host, std::uint16_t port);

    /// The first one.
    FakeDnsSd::Resolution resolution() const { return dnsSd.resolutions().at(0); }

    /// Of the listener. The port depends on it: no other process has this one.
    const std::string serviceName = "Test " + std::to_string(::getpid());

    DispatchPool pool;
    FakeDnsSd dnsSd;
    ScriptedMonitor monitor;
    std::unique_ptr<TcpNetwork> network;

private:
    std::shared_ptr<Listener> listener_;
    std::uint16_t listeningPort_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::shared_ptr<Connection>> accepted_;
    std::size_t handedOut_ = 0;
};

/// Sends until the socket buffers are full and a send stays pending. Returns all data sent,
/// including that of the pending send.
std::string fillBuffers(Subject& subject, std::future<std::error_code>& pending);

/// `size` pseudo-random bytes, so that lost, repeated or shifted data is detected.
std::string pattern(std::size_t size);

/// The value of the future; throws if it is not ready within `kPatience`.
template <typename Value> Value take(std::future<Value> future)
{
    if (future.wait_for(kPatience) != std::future_status::ready)
        throw std::runtime_error("nothing came");
    return future.get();
}

std::chrono::nanoseconds processorTime();

std::size_t openDescriptorCount();

} // namespace quillbox
