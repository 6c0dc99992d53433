#pragma once

#include "platform/network.h"

#include <chrono>
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

/// A browser whose events come from a test.
class FakeBrowser final : public Browser, public std::enable_shared_from_this<FakeBrowser> {
public:
    FakeBrowser(std::string browsedType, const TcpParameters& browserParameters);

    FakeBrowser(const FakeBrowser&) = delete;
    FakeBrowser& operator=(const FakeBrowser&) = delete;

    void setResultsChangedHandler(ResultsChangedHandler handler) override;
    void setStateUpdateHandler(StateUpdateHandler handler) override;
    void start(std::shared_ptr<DispatchQueue> startQueue) override;
    void cancel() override;

    /// Queues a state report, or a complete result set.
    void report(State state, std::error_code error = {});
    void deliver(Results results);

    std::string type;
    TcpParameters parameters;
    std::shared_ptr<DispatchQueue> queue;
    bool isStarted = false;
    bool wasPrepared = false; ///< had both handlers when it was started
    int cancels = 0;
    std::vector<std::string>* log = nullptr;

private:
    ResultsChangedHandler resultsHandler_;
    StateUpdateHandler stateHandler_;
};

/// A resolution whose results come from a test. It reports every result to the handlers that are
/// set by then, also after the first result and after `stop`. Its `Record` outlives it.
class FakeNetService final : public NetService {
public:
    struct Record {
        ServiceEndpoint service;
        std::optional<std::chrono::milliseconds> timeout; ///< set by `resolve`
        int stops = 0;
        bool hasHandlers = false;
        bool isDestroyed = false;
        FakeNetService* object = nullptr;
        std::vector<std::string>* log = nullptr; ///< if set, records "netService.stop"
    };

    FakeNetService(std::shared_ptr<DispatchQueue> mainQueue, std::shared_ptr<Record> record);
    ~FakeNetService() override;

    FakeNetService(const FakeNetService&) = delete;
    FakeNetService& operator=(const FakeNetService&) = delete;

    void setHandlers(DidResolveHandler didResolve, DidNotResolveHandler didNotResolve) override;
    void resolve(std::chrono::milliseconds timeout) override;
    void stop() override;
    const std::vector<SocketAddress>& addresses() const override { return addresses_; }
    std::uint16_t port() const override { return port_; }

    /// Queues the result of the resolution on the main queue.
    void finish(std::vector<SocketAddress> addresses, std::uint16_t port);
    void fail();

private:
    void post(bool isResolved);

    struct Handlers {
        DidResolveHandler didResolve;
        DidNotResolveHandler didNotResolve;
    };

    const std::shared_ptr<DispatchQueue> mainQueue_;
    const std::shared_ptr<Record> record_;
    std::shared_ptr<Handlers> handlers_ = std::make_shared<Handlers>();
    std::vector<SocketAddress> addresses_;
    std::uint16_t port_ = 0;
};

/// Makes the fakes above and keeps them for the test.
class FakeNetwork final : public Network {
public:
    explicit FakeNetwork(Dispatch& dispatch) : dispatch_(dispatch) {}

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
    std::shared_ptr<Browser> makeBrowser(std::string type,
                                         const TcpParameters& parameters) override;
    std::unique_ptr<NetService> makeNetService(const ServiceEndpoint& service) override;
    TrafficReport traffic() const override { return carried; }

    TrafficReport carried;

    /// If set, makeListener fails with it.
    std::error_code listenerError;

    /// If set, called with the type before a browser is made.
    std::function<void(const std::string& type)> makingBrowser;

    std::vector<std::shared_ptr<FakeListener>> listeners;
    std::vector<std::shared_ptr<FakeConnection>> connections;
    std::vector<std::shared_ptr<FakeBrowser>> browsers;
    std::vector<std::shared_ptr<FakeNetService::Record>> netServices;
    std::vector<std::string>* log = nullptr; ///< passed on to new objects; records new listeners

private:
    Dispatch& dispatch_;
    std::vector<std::weak_ptr<FakeConnection>> made_;
};

} // namespace quillbox
