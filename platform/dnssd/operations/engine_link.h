#pragma once

#include "platform/dnssd/engine/engine.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace quillbox::dnssd {

/// The delays before a request that the engine has refused is sent again.
inline constexpr std::chrono::milliseconds kShortestPause{500};
inline constexpr std::chrono::milliseconds kLongestPause{30'000};

/// Connects active queries and registrations (the clients) to an engine that may go down and come
/// back up: notifies each client when to send its request, and routes events to it. Events for
/// requests made before the engine last went down are dropped.
///
/// Belongs to the engine's queue. Clients may come and go, send and end requests inside any of
/// their callbacks.
class EngineLink final {
public:
    /// A query or registration, with one active request at a time. Attached for as long as it
    /// exists, which ends its request.
    class Client {
    public:
        Client(const Client&) = delete;
        Client& operator=(const Client&) = delete;

        /// The engine is up and has no request of this client. Also called when it restarted so
        /// fast that it was never reported down.
        virtual void engineUp() = 0;

        virtual void engineDown(std::error_code error) = 0;

        /// An event for the active request.
        virtual void engineEvent(const Event& event) = 0;

        virtual void localAddressesChanged() {}

    protected:
        explicit Client(EngineLink& engineLink);
        virtual ~Client();

        /// Calls `engineUp` or `engineDown`, if the state is known. It calls them at each change.
        void readState();

        /// Sends a request under a new id. The engine must be up.
        void send(Request request);

        /// Ends the active request. False if there is none.
        bool end();

        EngineLink& link;
        RequestId id = 0; ///< of the active request; 0 if there is none

    private:
        friend class EngineLink;
    };

    enum class State { Unknown, Up, Down };

    explicit EngineLink(std::unique_ptr<Engine> backend) : engine(std::move(backend)) {}
    EngineLink(const EngineLink&) = delete;
    EngineLink& operator=(const EngineLink&) = delete;

    /// Called once.
    void start();

    /// Withdraws everything; nothing is sent to the engine afterwards.
    void stop();

    State state() const { return currentState; }
    bool isUp() const { return currentState == State::Up; }

    /// Why the engine is down; set in `Down` only.
    std::error_code error() const { return currentError; }

    /// The computer's host name, as last reported by the engine.
    const std::string& hostName() const { return computerName; }

    void updateAddresses(const UpdateAddressesRequest& request) { engine->send(request); }

    void tellAll(const std::function<void(Client&)>& tell);

private:
    void handle(const Event& event);
    void dropRequests();
    void route(RequestId id, const Event& event);

    const std::unique_ptr<Engine> engine;
    State currentState = State::Unknown;
    std::error_code currentError;
    std::string computerName;
    std::vector<Client*> clients; ///< in the order in which they attached
    RequestId lastId = 0;
    std::map<RequestId, Client*> routes;
};

} // namespace quillbox::dnssd
