#pragma once

#include "platform/dnssd/engine.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <unordered_map>

namespace quillbox::dnssd {

/// Joins the questions and registrations that stand to an engine that comes and goes: tells each of
/// them when it is to ask, and brings it the events that answer it. Events for what was asked of an
/// engine that has been away since are dropped.
///
/// Belongs to one serial queue, `start` and `stop` excepted. A client may attach, detach, ask and
/// end in any of its calls.
class EngineLink final {
public:
    /// One that asks, one question at a time.
    class Client {
    public:
        /// The engine works and knows nothing of this client. Also called when it came back so
        /// fast that nobody saw it go.
        virtual void engineUp() = 0;

        virtual void engineDown(std::error_code error) = 0;

        /// An event for the question that was asked last.
        virtual void engineEvent(const Event& event) = 0;

    protected:
        ~Client() = default;
    };

    enum class State { Unknown, Up, Down };

    explicit EngineLink(std::unique_ptr<Engine> backend) : engine(std::move(backend)) {}
    EngineLink(const EngineLink&) = delete;
    EngineLink& operator=(const EngineLink&) = delete;

    /// Called once. The handler is called on any thread and brings the event to `handle`.
    void start(Engine::EventHandler handler) { engine->start(std::move(handler)); }

    /// From any thread. Withdraws everything; nothing is sent to the engine any more.
    void stop();

    void handle(const Event& event);

    /// A client that attaches asks the state by itself; later changes are told.
    void attach(Client& client);
    void detach(Client& client);

    State state() const { return currentState; }
    bool isUp() const { return currentState == State::Up; }

    /// Why the engine is away; set in `Down` only.
    std::error_code error() const { return currentError; }

    /// The computer's own, as the engine told it last.
    const std::string& hostName() const { return computerName; }

    /// Sends a request under a fresh id, which it gives. The engine is up.
    AskId ask(Client& client, Request request);

    /// Ends what was asked; nothing for an id that the engine has forgotten, or 0.
    void end(AskId id);

    void updateAddresses(UpdateAddressesRequest request) { send(std::move(request)); }

private:
    void send(Request request);
    void tellAll(const std::function<void(Client&)>& tell);
    void route(AskId id, const Event& event);

    const std::unique_ptr<Engine> engine;
    std::mutex mutex; ///< guards `isStopped`, and the engine against requests after its end
    bool isStopped = false;

    State currentState = State::Unknown;
    std::error_code currentError;
    std::string computerName;
    std::uint64_t nextClient = 0;
    std::map<std::uint64_t, Client*> clients; ///< in the order in which they attached
    std::unordered_map<const Client*, std::uint64_t> keys;
    AskId lastId = 0;
    std::map<AskId, Client*> routes;
};

} // namespace quillbox::dnssd
