#include "tests/fakes/fake_network.h"

#include <utility>

namespace quillbox {

namespace {

class MemoryStorage final : public ContentStorage {
public:
    explicit MemoryStorage(std::string_view text) : text_(text) {}

    std::size_t size() const override { return text_.size(); }
    std::span<const std::byte> bytes() const override
    {
        return std::as_bytes(std::span(text_.data(), text_.size()));
    }

private:
    const std::string text_;
};

std::error_code cancelled()
{
    return std::make_error_code(std::errc::operation_canceled);
}

} // namespace

Content makeContent(std::string_view bytes)
{
    return Content(std::make_unique<MemoryStorage>(bytes));
}

std::string textOf(const Content& content)
{
    const auto bytes = content.bytes();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

FakeConnection::FakeConnection(std::optional<Endpoint> madeFor,
                               std::optional<TcpParameters> madeWith)
    : endpoint(std::move(madeFor)), parameters(madeWith)
{
}

FakeConnection::~FakeConnection() = default;

void FakeConnection::note(const char* call)
{
    if (log)
        log->push_back(name + '.' + call);
}

void FakeConnection::post(std::function<void()> work)
{
    if (queue)
        queue->async([self = shared_from_this(), work = std::move(work)] { work(); });
}

void FakeConnection::setStateUpdateHandler(StateUpdateHandler handler)
{
    note("setStateUpdateHandler");
    hasStateHandler = static_cast<bool>(handler);
    stateHandler_ = std::move(handler);
}

void FakeConnection::start(std::shared_ptr<DispatchQueue> startQueue)
{
    note("start");
    queue = std::move(startQueue);
}

void FakeConnection::receive(std::size_t least, std::size_t most, ReceiveCompletion completion)
{
    note("receive");
    ++receives;
    minimum = least;
    maximum = most;
    isReceiving = true;
    receiveCompletion_ = std::move(completion);
}

void FakeConnection::send(Content content, SendCompletion completion)
{
    note("send");
    sent.push_back(textOf(content));
    isSending = true;
    sendCompletion_ = std::move(completion);
}

void FakeConnection::cancel()
{
    note("cancel");
    if (++cancels > 1)
        return;
    if (isReceiving)
        deliverNothing(false, cancelled());
    if (isSending)
        completeSend(cancelled());
    report(State::Cancelled);
}

void FakeConnection::report(State state, std::error_code error)
{
    post([this, state, error] {
        if (const auto handler = stateHandler_)
            handler(state, error);
        if (state == State::Cancelled)
            stateHandler_ = nullptr;
    });
}

void FakeConnection::deliver(std::string_view bytes, bool isComplete, std::error_code error)
{
    isReceiving = false;
    post([completion = std::exchange(receiveCompletion_, {}), text = std::string(bytes), isComplete,
          error] { completion(makeContent(text), isComplete, error); });
}

void FakeConnection::deliverNothing(bool isComplete, std::error_code error)
{
    isReceiving = false;
    post([completion = std::exchange(receiveCompletion_, {}), isComplete, error] {
        completion(Content(), isComplete, error);
    });
}

void FakeConnection::completeSend(std::error_code error)
{
    isSending = false;
    post([completion = std::exchange(sendCompletion_, {}), error] { completion(error); });
}

void FakeConnection::dropPending()
{
    // Moved out of the object first, as they may own its last reference.
    const auto receiving = std::exchange(receiveCompletion_, {});
    const auto sending = std::exchange(sendCompletion_, {});
}

FakeListener::FakeListener(const TcpParameters& listenerParameters, std::uint16_t listenerPort)
    : parameters(listenerParameters), port(listenerPort)
{
}

void FakeListener::setService(ServiceRegistration registration)
{
    service = std::move(registration);
}

void FakeListener::setNewConnectionHandler(NewConnectionHandler handler)
{
    connectionHandler_ = std::move(handler);
}

void FakeListener::setStateUpdateHandler(StateUpdateHandler handler)
{
    stateHandler_ = std::move(handler);
}

void FakeListener::start(std::shared_ptr<DispatchQueue> startQueue)
{
    if (log)
        log->push_back("listener.start " + service->name);
    wasPrepared = service && connectionHandler_ && stateHandler_;
    queue = std::move(startQueue);
    isStarted = true;
}

void FakeListener::cancel()
{
    if (log)
        log->push_back("listener.cancel " + (service ? service->name : std::string()));
    if (++cancels == 1)
        report(State::Cancelled);
}

void FakeListener::report(State state, std::error_code error)
{
    if (queue)
        queue->async([handler = stateHandler_, state, error] {
            if (handler)
                handler(state, error);
        });
}

void FakeListener::accept(std::shared_ptr<Connection> connection)
{
    queue->async([handler = connectionHandler_, connection = std::move(connection)] {
        handler(connection);
    });
}

void FakeListener::acceptAtOnce(std::shared_ptr<Connection> connection)
{
    connectionHandler_(std::move(connection));
}

FakeNetwork::~FakeNetwork()
{
    for (const auto& weak : made_) {
        if (const auto connection = weak.lock())
            connection->dropPending();
    }
}

std::shared_ptr<FakeConnection> FakeNetwork::makeAcceptedConnection()
{
    auto connection = std::make_shared<FakeConnection>();
    made_.push_back(connection);
    return connection;
}

std::shared_ptr<Listener> FakeNetwork::makeListener(const TcpParameters& parameters,
                                                    std::uint16_t port, std::error_code& error)
{
    error = listenerError;
    if (error)
        return nullptr;
    if (log)
        log->emplace_back("listener.make");
    auto listener = std::make_shared<FakeListener>(parameters, port);
    listener->log = log;
    listeners.push_back(listener);
    return listener;
}

std::shared_ptr<Connection> FakeNetwork::makeConnection(const Endpoint& endpoint,
                                                        const TcpParameters& parameters)
{
    auto connection = std::make_shared<FakeConnection>(endpoint, parameters);
    connection->log = log;
    connection->name = "outgoing";
    made_.push_back(connection);
    connections.push_back(connection);
    return connection;
}

} // namespace quillbox
