#pragma once

#include "platform/network.h"
#include "tests/fakes/fake_dns_sd.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace quillbox {

/// Content in memory, and its bytes as text, for tests to send and to compare.
Content makeContent(std::string_view bytes);
std::string textOf(const Content& content);

/// A connection whose events come from a test. It keeps the contract of Connection: handlers run on
/// its queue, and `cancel` completes pending operations before it reports Cancelled.
class FakeConnection final : public Connection,
                             public std::enable_shared_from_this<FakeConnection> {
public:
    explicit FakeConnection(std::optional<Endpoint> madeFor = {},
                            std::optional<TcpParameters> madeWith = {});
    ~FakeConnection() override;

    FakeConnection(const FakeConnection&) = delete;
    FakeConnection& operator=(const FakeConnection&) = delete;

    void setStateUpdateHandler(StateUpdateHandler handler) override;
    void start(std::shared_ptr<DispatchQueue> queue) override;
    void receive(std::size_t least, std::size_t most, ReceiveCompletion completion) override;
    void send(Content content, SendCompletion completion) override;
    void cancel() override;

    /// Queues a state report.
    void report(State state, std::error_code error = {});

    /// Completes the pending receive.
    void deliver(std::string_view bytes, bool isComplete = false, std::error_code error = {});

    /// Completes the pending receive without content.
    void deliverNothing(bool isComplete, std::error_code error = {});

    /// Completes the pending send.
    void completeSend(std::error_code error = {});

    /// Destroys pending completions without running them. A pending completion may own this
    /// connection, which would leak if a test leaves it pending.
    void dropPending();

    std::optional<Endpoint> endpoint;        ///< none for an accepted connection
    std::optional<TcpParameters> parameters; ///< none for an accepted connection
    std::shared_ptr<DispatchQueue> queue;    ///< null until it is started
    bool hasStateHandler = false;
    bool isReceiving = false;
    bool isSending = false;
    std::size_t minimum = 0;
    std::size_t maximum = 0;
    int receives = 0;
    int cancels = 0;
    std::vector<std::string> sent;           ///< the contents handed to `send`
    std::vector<std::string>* log = nullptr; ///< if set, records calls as "NAME.call"
    std::string name;
    std::shared_ptr<int> alive = std::make_shared<int>(0); ///< expires with the connection

private:
    void note(const char* call);
    void post(std::function<void()> work);

    StateUpdateHandler stateHandler_;
    ReceiveCompletion receiveCompletion_;
    SendCompletion sendCompletion_;
};

/// A listener whose events come from a test.
class FakeListener final : public Listener {
public:
    FakeListener(const TcpParameters& listenerParameters, std::uint16_t listenerPort);

    FakeListener(const FakeListener&) = delete;
    FakeListener& operator=(const FakeListener&) = delete;

    void setService(ServiceRegistration registration) override;
    void setNewConnectionHandler(NewConnectionHandler handler) override;
    void setStateUpdateHandler(StateUpdateHandler handler) override;
    void start(std::shared_ptr<DispatchQueue> startQueue) override;
    void cancel() override;

    /// Queues a state report, or an accepted connection. Both arrive even if the listener has been
    /// destroyed by then.
    void report(State state, std::error_code error = {});
    void accept(std::shared_ptr<Connection> connection);

    /// Hands over an accepted connection before all work that is pending on the queue.
    void acceptAtOnce(std::shared_ptr<Connection> connection);

    TcpParameters parameters;
    std::uint16_t port = 0;
    std::optional<ServiceRegistration> service;
    std::shared_ptr<DispatchQueue> queue;
    bool isStarted = false;
    bool wasPrepared = false; ///< had its service and both handlers when it was started
    int cancels = 0;
    std::vector<std::string>* log = nullptr;

private:
    StateUpdateHandler stateHandler_;
    NewConnectionHandler connectionHandler_;
};

/// Makes the fakes above and keeps them for the test.
class FakeNetwork final : public Network {
public:
    FakeNetwork() = default;

    /// Drops the pending completions of the connections that it made.
    ~FakeNetwork() override;

    FakeNetwork(const FakeNetwork&) = delete;
    FakeNetwork& operator=(const FakeNetwork&) = delete;

    /// A connection for a listener to accept.
    std::shared_ptr<FakeConnection> makeAcceptedConnection();

    std::shared_ptr<Listener> makeListener(const TcpParameters& parameters, std::uint16_t port,
                                           std::error_code& error) override;
    std::shared_ptr<Connection> makeConnection(const Endpoint& endpoint,
                                               const TcpParameters& parameters) override;
    FakeDnsSd& dnsSd() override { return dnsSd_; }
    TrafficReport traffic() const override { return carried; }

    TrafficReport carried;

    /// If set, makeListener fails with it.
    std::error_code listenerError;

    std::vector<std::shared_ptr<FakeListener>> listeners;
    std::vector<std::shared_ptr<FakeConnection>> connections;
    std::vector<std::string>* log = nullptr; ///< passed on to new objects; records new listeners

private:
    FakeDnsSd dnsSd_;
    std::vector<std::weak_ptr<FakeConnection>> made_;
};

} // namespace quillbox
