#pragma once

#include "platform/dispatch/dispatch_pool.h"
#include "platform/network_monitor.h"
#include "platform/tcp/tcp.h"
#include "tests/platform/tcp/scripted_dns_sd.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace quillbox {

/// How long a test waits for what must happen.
inline constexpr std::chrono::seconds kPatience{20};

/// How long a test watches for what must not happen.
inline constexpr std::chrono::milliseconds kWatch{200};

/// A monitor whose addresses and changes a test gives. Thread-safe.
class ScriptedMonitor final : public NetworkMonitor {
public:
    std::vector<InterfaceAddress> addresses() const override;
    std::unique_ptr<Subscription> subscribe(std::shared_ptr<DispatchQueue> queue,
                                            std::function<void()> changed) override;

    void setAddresses(std::vector<InterfaceAddress> addresses);
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
    std::vector<std::weak_ptr<Subscriber>> subscribers_;
};

/// A plain socket of a peer, independent of the code under test. Calls block, for `kPatience` at
/// the most.
class Peer final {
public:
    explicit Peer(int descriptor);
    ~Peer();

    Peer(Peer&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Peer& operator=(Peer&&) = delete;

    int descriptor() const { return descriptor_; }

    /// False when the connection failed.
    bool send(std::string_view bytes) const;

    /// What comes, `most` bytes at the most; empty at the end of the stream and after an error.
    std::string receive(std::size_t most) const;

    /// Everything until the end of the stream. `isClean` tells whether it ended without an error.
    std::string receiveAll(bool& isClean) const;

    /// Exactly so many bytes, if they come.
    std::string receiveExactly(std::size_t count) const;

    void shutDownSending() const;

    /// Waits until all that was sent has arrived at the other side's system.
    bool waitUntilAcknowledged() const;

    /// Ends the connection with a reset.
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
    void close();

private:
    int descriptor_;
    SocketAddress address_;
    std::uint16_t port_ = 0;
};

/// An address on loopback that does not answer: its listener's queue is full, so that requests are
/// dropped without a word.
class SilentAddress final {
public:
    explicit SilentAddress(const std::string& address);

    SocketAddress address() const { return listener_.address(); }

private:
    PeerListener listener_;
    std::vector<Peer> fillers_;
};

Peer connectPeer(std::uint16_t port);

/// What a receive yielded.
struct Received {
    std::string bytes;
    bool isComplete = false;
    std::error_code error;
};

/// Notes a connection's or listener's state reports, and waits for them. Thread-safe.
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

/// A connection under test, with its calls made on its queue and its answers as futures.
class Subject final {
public:
    Subject(std::shared_ptr<Connection> connection, std::shared_ptr<DispatchQueue> queue);

    void start();
    std::future<Received> receive(std::size_t minimum = 1,
                                  std::size_t maximum = kMaximumContentSize);
    std::future<std::error_code> send(std::string bytes);
    void cancel();

    /// Gives the connection up without cancelling it.
    void drop();

    /// Waits until the queue has run all that is on it.
    void settle();

    const std::shared_ptr<Connection>& connection() const { return connection_; }
    const std::shared_ptr<DispatchQueue>& queue() const { return queue_; }

    const std::shared_ptr<StateLog<Connection::State>> log =
        std::make_shared<StateLog<Connection::State>>();

private:
    std::shared_ptr<Connection> connection_;
    const std::shared_ptr<DispatchQueue> queue_;
};

/// A whole TCP network with scripted surroundings. All pending work ends with it.
class Harness final {
public:
    Harness();
    ~Harness();

    Harness(const Harness&) = delete;
    Harness& operator=(const Harness&) = delete;

    std::shared_ptr<DispatchQueue> makeQueue();

    /// A started listener; connections that it accepts come to `nextAccepted`.
    std::shared_ptr<Listener> listen();
    std::uint16_t listeningPort() const { return listeningPort_; }
    std::size_t acceptedCount();
    bool waitForAccepted(std::size_t count, std::chrono::milliseconds limit = kPatience);

    /// The next accepted connection, not started yet; none when none came.
    std::shared_ptr<Connection> nextAccepted();

    /// A started accepted connection and its peer.
    std::pair<Subject, Peer> acceptedPair();

    Subject dial(const Endpoint& endpoint);
    Subject dial(const std::string& host, std::uint16_t port);

    DispatchPool pool;
    ScriptedDnsSd dnsSd;
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

/// Sends until the system's buffers are full and a send stays pending. Gives all that was handed
/// over, the content of the pending send included.
std::string fillBuffers(Subject& subject, std::future<std::error_code>& pending);

/// A text of so many bytes that differs at every place from one moved by a little.
std::string pattern(std::size_t size);

/// The value, or a failure of the test when it does not come.
template <typename Value> Value take(std::future<Value> future)
{
    if (future.wait_for(kPatience) != std::future_status::ready)
        throw std::runtime_error("nothing came");
    return future.get();
}

std::chrono::nanoseconds processorTime();

std::size_t openDescriptorCount();

} // namespace quillbox
