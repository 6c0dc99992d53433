#include "tests/platform/tcp/tcp_harness.h"

#include "platform/tcp/pipe_pool.h"
#include "platform/values/socket_address.h"
#include "tests/fakes/fake_network.h"
#include "tests/fakes/socket_addresses.h"

#include <ctime>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quillbox {

namespace {

int connectTo(const SocketAddress& address, bool isBlocking = true,
              const SocketAddress& from = ipv4Address("0.0.0.0"))
{
    const int type = SOCK_STREAM | SOCK_CLOEXEC | (isBlocking ? 0 : SOCK_NONBLOCK);
    const int descriptor = ::socket(AF_INET, type, 0);
    // The port is chosen by connect(2), which may use one that has another connection.
    const int on = 1;
    ::setsockopt(descriptor, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
    ::bind(descriptor, reinterpret_cast<const sockaddr*>(from.data()),
           static_cast<socklen_t>(from.size()));
    if (::connect(descriptor, address.data(), address.size()) != 0 && isBlocking)
        throw std::runtime_error("the peer cannot connect");
    return descriptor;
}

/// The bytes of a content, read from the pipe if it is piped.
std::string bytesOf(const Content& content)
{
    auto* piped = dynamic_cast<PipedChunk*>(content.storage());
    if (piped == nullptr)
        return textOf(content);
    const auto pool = std::make_shared<ChunkPool>();
    return textOf(Content(piped->takeRest(*pool)));
}

} // namespace

class ScriptedMonitor::Held final : public Subscription {
public:
    explicit Held(std::shared_ptr<Subscriber> subscriber) : subscriber_(std::move(subscriber)) {}

private:
    const std::shared_ptr<Subscriber> subscriber_;
};

std::vector<InterfaceAddress> ScriptedMonitor::addresses() const
{
    const std::lock_guard lock(mutex_);
    return addresses_;
}

OutgoingRoute ScriptedMonitor::routeThrough(int interfaceIndex, const SocketAddress& address) const
{
    const std::lock_guard lock(mutex_);
    const auto found = routes_.find({interfaceIndex, withPort(address, 0)});
    if (found == routes_.end())
        return OutgoingRoute::Preferred;
    auto& inTurn = found->second;
    const auto route = inTurn.front();
    if (inTurn.size() > 1)
        inTurn.erase(inTurn.begin());
    std::this_thread::sleep_for(lookupTime_);
    return route;
}

void ScriptedMonitor::slowDown(std::chrono::milliseconds time)
{
    const std::lock_guard lock(mutex_);
    lookupTime_ = time;
}

void ScriptedMonitor::setRoutes(int interfaceIndex, const SocketAddress& address,
                                std::vector<OutgoingRoute> inTurn)
{
    const std::lock_guard lock(mutex_);
    routes_[{interfaceIndex, withPort(address, 0)}] = std::move(inTurn);
}

std::unique_ptr<NetworkMonitor::Subscription>
ScriptedMonitor::subscribe(std::shared_ptr<DispatchQueue> queue, std::function<void()> changed)
{
    auto subscriber =
        std::make_shared<Subscriber>(Subscriber{std::move(queue), std::move(changed)});
    const std::lock_guard lock(mutex_);
    subscribers_.push_back(subscriber);
    return std::make_unique<Held>(std::move(subscriber));
}

void ScriptedMonitor::setAddresses(std::vector<InterfaceAddress> addresses)
{
    const std::lock_guard lock(mutex_);
    addresses_ = std::move(addresses);
}

void ScriptedMonitor::tellChange()
{
    const std::lock_guard lock(mutex_);
    for (const auto& each : subscribers_) {
        if (const auto subscriber = each.lock())
            subscriber->queue->async(subscriber->changed);
    }
}

std::size_t ScriptedMonitor::subscriberCount() const
{
    const std::lock_guard lock(mutex_);
    std::size_t count = 0;
    for (const auto& each : subscribers_)
        count += each.expired() ? 0 : 1;
    return count;
}

Peer::Peer(int descriptor) : descriptor_(descriptor)
{
    const timeval limit{.tv_sec = kPatience.count(), .tv_usec = 0};
    ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    const int on = 1;
    ::setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

Peer::~Peer()
{
    close();
}

bool Peer::send(std::string_view bytes) const
{
    while (!bytes.empty()) {
        const auto count = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

std::string Peer::receive(std::size_t most) const
{
    std::string bytes(most, '\0');
    const auto count = ::recv(descriptor_, bytes.data(), bytes.size(), 0);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
}

std::string Peer::receiveAll(bool& isClean) const
{
    std::string all;
    std::string bytes(65536, '\0');
    ssize_t count = 0;
    while ((count = ::recv(descriptor_, bytes.data(), bytes.size(), 0)) > 0)
        all.append(bytes, 0, static_cast<std::size_t>(count));
    isClean = count == 0;
    return all;
}

std::string Peer::receiveExactly(std::size_t count) const
{
    std::string all;
    while (all.size() < count) {
        const auto bytes = receive(count - all.size());
        if (bytes.empty())
            break;
        all += bytes;
    }
    return all;
}

void Peer::shutDownSending() const
{
    ::shutdown(descriptor_, SHUT_WR);
}

bool Peer::waitUntilAcknowledged() const
{
    const auto end = std::chrono::steady_clock::now() + kPatience;
    int outstanding = 1;
    while (outstanding > 0 && std::chrono::steady_clock::now() < end) {
        ::ioctl(descriptor_, SIOCOUTQ, &outstanding);
        std::this_thread::yield();
    }
    return outstanding == 0;
}

void Peer::reset()
{
    const linger abort{.l_onoff = 1, .l_linger = 0};
    ::setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    close();
}

void Peer::close()
{
    if (descriptor_ >= 0)
        ::close(std::exchange(descriptor_, -1));
}

PeerListener::PeerListener(const std::string& address, int backlog)
    : descriptor_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), address_(ipv4Address(address))
{
    const auto size = static_cast<socklen_t>(address_.size());
    if (::bind(descriptor_, reinterpret_cast<const sockaddr*>(address_.data()), size) != 0
        || ::listen(descriptor_, backlog) != 0)
        throw std::runtime_error("the peer cannot listen");
    sockaddr_in bound{};
    socklen_t boundSize = sizeof bound;
    ::getsockname(descriptor_, reinterpret_cast<sockaddr*>(&bound), &boundSize);
    port_ = ntohs(bound.sin_port);
    address_ = ipv4Address(address, port_);
    const timeval limit{.tv_sec = kPatience.count(), .tv_usec = 0};
    ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

PeerListener::~PeerListener()
{
    close();
}

Peer PeerListener::accept() const
{
    const int accepted = ::accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC);
    if (accepted < 0)
        throw std::runtime_error("nobody connected to the peer");
    return Peer(accepted);
}

bool PeerListener::isConnectedTo(std::chrono::milliseconds limit) const
{
    pollfd waiting{.fd = descriptor_, .events = POLLIN, .revents = 0};
    return ::poll(&waiting, 1, static_cast<int>(limit.count())) == 1;
}

void PeerListener::setBacklog(int backlog) const
{
    EXPECT_EQ(::listen(descriptor_, backlog), 0);
}

void PeerListener::close()
{
    if (descriptor_ >= 0)
        ::close(std::exchange(descriptor_, -1));
}

SilentAddress::SilentAddress(const std::string& address) : listener_(address, 0)
{
    // The kernel queues one connection more than the backlog; the others make sure that it is full.
    for (int count = 0; count < 3; ++count)
        fillers_.emplace_back(connectTo(listener_.address(), false));
    (void)fillers_.front().waitUntilAcknowledged();
}

Peer connectPeer(std::uint16_t port, const std::string& from)
{
    return Peer(connectTo(ipv4Address("127.0.0.1", port), true, ipv4Address(from)));
}

Subject::Subject(std::shared_ptr<Connection> connection, std::shared_ptr<DispatchQueue> queue)
    : connection_(std::move(connection)), queue_(std::move(queue))
{
    connection_->setStateUpdateHandler(
        [log = log](Connection::State state, std::error_code error) { log->note(state, error); });
}

void Subject::start()
{
    queue_->async([connection = connection_, queue = queue_] { connection->start(queue); });
}

std::future<Received> Subject::receive(std::size_t minimum, std::size_t maximum)
{
    auto promise = std::make_shared<std::promise<Received>>();
    auto future = promise->get_future();
    queue_->async([connection = connection_, queue = queue_, promise, minimum, maximum] {
        auto isInside = std::make_shared<bool>(true);
        connection->receive(
            minimum, maximum,
            [promise, queue, isInside](Content content, bool isComplete, std::error_code error) {
                EXPECT_TRUE(queue->isCurrent());
                EXPECT_FALSE(*isInside);
                promise->set_value({bytesOf(content), isComplete, error});
            });
        *isInside = false;
    });
    return future;
}

std::future<std::error_code> Subject::send(std::string bytes)
{
    auto promise = std::make_shared<std::promise<std::error_code>>();
    auto future = promise->get_future();
    queue_->async([connection = connection_, queue = queue_, promise, bytes = std::move(bytes)] {
        auto isInside = std::make_shared<bool>(true);
        connection->send(makeContent(bytes), [promise, queue, isInside](std::error_code error) {
            EXPECT_TRUE(queue->isCurrent());
            EXPECT_FALSE(*isInside);
            promise->set_value(error);
        });
        *isInside = false;
    });
    return future;
}

void Subject::cancel()
{
    queue_->async([connection = connection_] { connection->cancel(); });
}

void Subject::drop()
{
    connection_.reset();
}

void Subject::settle()
{
    // Twice, to include work that the pending work submits.
    for (int turn = 0; turn < 2; ++turn) {
        std::promise<void> done;
        queue_->async([&done] { done.set_value(); });
        done.get_future().wait();
    }
}

Harness::Harness() : network(std::make_unique<TcpNetwork>(pool, dnsSd, monitor))
{
    InterfaceAddress loopback;
    loopback.interfaceIndex = 1;
    loopback.interfaceName = "lo";
    loopback.isLoopback = true;
    loopback.address = ipv4Address("127.0.0.1");
    monitor.setAddresses({loopback});
}

Harness::~Harness()
{
    listener_.reset();
    std::vector<std::shared_ptr<Connection>> accepted;
    {
        // The listener may be accepting at this moment.
        const std::lock_guard lock(mutex_);
        accepted.swap(accepted_);
    }
    accepted.clear();
    pool.shutdown();
}

std::shared_ptr<DispatchQueue> Harness::makeQueue()
{
    return pool.makeQueue("test", QualityOfService::UserInitiated);
}

std::shared_ptr<Listener> Harness::listen()
{
    std::error_code error;
    listener_ = network->makeListener({.allowLocalEndpointReuse = true}, kAnyPort, error);
    EXPECT_FALSE(error) << error.message();
    const auto index = dnsSd.registrations().size();
    listener_->setService({.name = serviceName, .type = "_smb._tcp"});
    listener_->setNewConnectionHandler([this](std::shared_ptr<Connection> connection) {
        const std::lock_guard lock(mutex_);
        accepted_.push_back(std::move(connection));
        changed_.notify_all();
    });
    const auto queue = makeQueue();
    std::promise<void> started;
    queue->async([&] {
        listener_->start(queue);
        started.set_value();
    });
    started.get_future().wait();
    listeningPort_ = dnsSd.registrations().at(index).request.port;
    return listener_;
}

std::size_t Harness::acceptedCount()
{
    const std::lock_guard lock(mutex_);
    return accepted_.size();
}

bool Harness::waitForAccepted(std::size_t count, std::chrono::milliseconds limit)
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return accepted_.size() >= count; });
}

std::shared_ptr<Connection> Harness::nextAccepted()
{
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, kPatience, [&] { return accepted_.size() > handedOut_; }))
        throw std::runtime_error("nothing was accepted");
    return std::exchange(accepted_[handedOut_++], nullptr);
}

std::pair<Subject, Peer> Harness::acceptedPair()
{
    if (!listener_)
        listen();
    auto peer = connectPeer(listeningPort_);
    Subject subject(nextAccepted(), makeQueue());
    subject.start();
    EXPECT_TRUE(subject.log->waitFor(Connection::State::Ready));
    return {std::move(subject), std::move(peer)};
}

Subject Harness::dial(const Endpoint& endpoint, const TcpParameters& parameters)
{
    Subject subject(network->makeConnection(endpoint, parameters), makeQueue());
    subject.start();
    return subject;
}

Subject Harness::dial(const std::string& host, std::uint16_t port)
{
    return dial(HostEndpoint{.host = host, .port = port});
}

std::string fillBuffers(Subject& subject, std::future<std::error_code>& pending)
{
    const auto chunk = pattern(kMaximumContentSize);
    std::string all;
    bool isPending = false;
    while (!isPending) {
        if (all.size() > 200 * kMaximumContentSize)
            throw std::runtime_error("the buffers have no end");
        pending = subject.send(chunk);
        all += chunk;
        isPending = pending.wait_for(kWatch) == std::future_status::timeout;
        if (!isPending)
            continue;
        // On a busy machine the send may only be late: let the queue run before it counts as
        // pending.
        subject.settle();
        isPending = pending.wait_for(kWatch) == std::future_status::timeout;
    }
    return all;
}

std::string pattern(std::size_t size)
{
    std::string text(size, '\0');
    std::uint32_t state = 1;
    for (auto& character : text) {
        state = state * 1664525U + 1013904223U;
        character = static_cast<char>(state >> 24U);
    }
    return text;
}

std::chrono::nanoseconds processorTime()
{
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::size_t openDescriptorCount()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

} // namespace quillbox
