#include "relay/finder_relay.h"

#include "platform/values/text.h"

#include <utility>

namespace quillbox {

template <typename Text> void FinderRelay::tell(Text&& text)
{
    log.tell(LogCategory::Relay, [&] { return inDoubleQuotes(advertisedName) + ": " + text(); });
}

std::shared_ptr<FinderRelay> FinderRelay::make(Dispatch& dispatch, Network& network, Log& log,
                                               const std::string& bundleIdentifier)
{
    return std::shared_ptr<FinderRelay>(new FinderRelay(dispatch, network, log, bundleIdentifier));
}

FinderRelay::FinderRelay(Dispatch& dispatch, Network& madeWith, Log& relayLog,
                         const std::string& bundleIdentifier)
    : network(madeWith),
      log(relayLog),
      mainQueue(dispatch.mainQueue()),
      queue(dispatch.makeQueue(bundleIdentifier + ".relay", QualityOfService::UserInitiated))
{
}

void FinderRelay::start(const Endpoint& target, const std::string& /*targetDescription*/,
                        const std::string& finderName)
{
    queue->async([self = shared_from_this(), target, finderName] {
        self->startOnQueue(target, finderName);
    });
}

void FinderRelay::stop()
{
    // Keeps the relay alive, so that it stops completely even if the owner releases it right away.
    queue->async([self = shared_from_this()] { self->stopOnQueue(); });
}

void FinderRelay::startOnQueue(const Endpoint& target, const std::string& finderName)
{
    stopOnQueue();
    advertisedName = finderName;
    startOfListener = log.now();
    tell([] { return "starting"; });

    TcpParameters parameters;
    parameters.allowLocalEndpointReuse = true;
    std::error_code error;
    const auto made = network.makeListener(parameters, kAnyPort, error);
    if (!made) {
        tell([&] { return "cannot open a listening port: " + error.message(); });
        report(false, "Could not start Finder service: " + error.message());
        return;
    }
    made->setService({.name = finderName, .type = kSmbServiceType});
    made->setNewConnectionHandler(
        [weak = weak_from_this(), target](std::shared_ptr<Connection> connection) {
            if (const auto self = weak.lock())
                self->accept(std::move(connection), target);
            else
                connection->cancel();
        });
    made->setStateUpdateHandler([weak = weak_from_this(), reporting = std::weak_ptr(made),
                                 finderName](Listener::State state, std::error_code reason) {
        if (const auto self = weak.lock())
            self->listenerChanged(reporting, state, reason, finderName);
    });
    listener = made;
    made->start(queue);
}

void FinderRelay::stopOnQueue()
{
    if (listener) {
        tell([&] {
            return "stopping after " + durationText(log.now() - startOfListener)
                   + "; sessions: " + std::to_string(sessions.size());
        });
        listener->cancel();
    }
    listener = nullptr;
    for (const auto& [identifier, session] : std::exchange(sessions, {}))
        session->finish();
}

void FinderRelay::accept(std::shared_ptr<Connection> connection, const Endpoint& target)
{
    const Uuid identifier = makeUuid();
    auto opened = network.makeConnection(target, {.client = connection});
    auto session = std::make_shared<RelaySession>(std::move(connection), std::move(opened), log,
                                                  advertisedName);
    // The session is still in use inside `onEnd`, so it is removed asynchronously.
    session->onEnd = [weak = weak_from_this(), identifier] {
        const auto self = weak.lock();
        if (!self)
            return;
        self->queue->async([weak, identifier] {
            if (const auto relay = weak.lock())
                relay->sessions.erase(identifier);
        });
    };
    sessions[identifier] = session;
    session->start(queue);
}

void FinderRelay::listenerChanged(const std::weak_ptr<Listener>& reporting, Listener::State state,
                                  std::error_code error, const std::string& finderName)
{
    // Ignores late reports of a listener that was stopped or replaced.
    const auto reporter = reporting.lock();
    if (!reporter || reporter != listener)
        return;
    if (state == Listener::State::Ready) {
        tell([&] { return "visible after " + durationText(log.now() - startOfListener); });
        report(true, finderName + " is visible in Finder");
    } else if (state == Listener::State::Waiting) {
        tell([&] { return "not advertised at present: " + error.message(); });
    } else if (state == Listener::State::Failed) {
        tell([&] { return "failed: " + error.message(); });
        report(false, "Finder service failed: " + error.message());
        stopOnQueue();
    }
}

void FinderRelay::report(bool ready, const std::string& text)
{
    mainQueue->async([weak = weak_from_this(), ready, text] {
        const auto self = weak.lock();
        if (!self)
            return;
        // A copy: the callback may replace itself or release the relay.
        if (const auto callback = self->statusChanged)
            callback(ready, text);
    });
}

} // namespace quillbox
