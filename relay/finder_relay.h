#pragma once

#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/network.h"
#include "platform/values/endpoint.h"
#include "platform/values/uuid.h"
#include "relay/relay_session.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace quillbox {

/// The type of the services that relays are advertised as.
inline constexpr const char* kSmbServiceType = "_smb._tcp";

/// Makes one phone appear in the file browser: a listener on a free port, advertised under a Finder
/// name, and for each incoming connection a `RelaySession` to a fixed target.
///
/// `start` and `stop` may be called on any thread, return at once, and take effect in the order of
/// the calls. The owner calls `stop` before it releases the relay; pending work on the queue keeps
/// the relay alive.
class FinderRelay final : public std::enable_shared_from_this<FinderRelay> {
public:
    /// Reports whether the relay is visible, and a text for the user.
    using StatusChanged = std::function<void(bool ready, const std::string& text)>;

    /// `bundleIdentifier` is the prefix of the queue's label. The references outlive the relay.
    static std::shared_ptr<FinderRelay> make(Dispatch& dispatch, Network& network, Log& log,
                                             const std::string& bundleIdentifier);

    FinderRelay(const FinderRelay&) = delete;
    FinderRelay& operator=(const FinderRelay&) = delete;

    /// Called on the main thread. Set there before `start`; may be replaced at any time.
    StatusChanged statusChanged;

    /// Relays to `target` under `finderName`. Restarts a running relay: its listener and sessions
    /// end first. `targetDescription` is ignored.
    void start(const Endpoint& target, const std::string& targetDescription,
               const std::string& finderName);

    /// Ends the listener and all sessions, without a report.
    void stop();

private:
    FinderRelay(Dispatch& dispatch, Network& madeWith, Log& relayLog,
                const std::string& bundleIdentifier);

    void startOnQueue(const Endpoint& target, const std::string& finderName);
    void stopOnQueue();
    void accept(std::shared_ptr<Connection> connection, const Endpoint& target);
    void listenerChanged(const std::weak_ptr<Listener>& reporting, Listener::State state,
                         std::error_code error, const std::string& finderName);
    void report(bool ready, const std::string& text);
    template <typename Text> void tell(Text&& text);

    Network& network;
    Log& log;
    const std::shared_ptr<DispatchQueue> mainQueue;
    const std::shared_ptr<DispatchQueue> queue;
    std::shared_ptr<Listener> listener;
    std::string advertisedName; ///< the Finder name, for the log
    Log::Clock::time_point startOfListener;
    std::map<Uuid, std::shared_ptr<RelaySession>> sessions;
};

} // namespace quillbox
