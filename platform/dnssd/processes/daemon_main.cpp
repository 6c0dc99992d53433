// quillbox-dns-sd-daemon: an engine on top of avahi-daemon, over the system bus (libavahi-client);
// up while the daemon runs.
//
// Without a bus it tries to connect every second; with a bus it waits for the daemon without doing
// anything.

#include "platform/dnssd/avahi/avahi_api.h"
#include "platform/dnssd/processes/process_frame.h"
#include "platform/values/backoff.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include <avahi-client/client.h>
#include <avahi-common/error.h>

namespace quillbox::dnssd {

namespace {

using Clock = std::chrono::steady_clock;

/// Between two connections.
constexpr std::chrono::milliseconds kFirstPause(100);
constexpr std::chrono::milliseconds kLongestPause(1000);
/// How long to wait for the daemon to establish the computer's host name. A daemon that has none is
/// still usable, since services are published on host names of their own.
constexpr std::chrono::seconds kHostNamePatience(2);

/// A client of the daemon. Replaced after each failure.
class Client final {
public:
    explicit Client(const AvahiPoll* poll)
    {
        int error = AVAHI_OK;
        client = avahi_client_new(poll, AVAHI_CLIENT_NO_FAIL, &Client::onState, this, &error);
        if (client != nullptr)
            avahiApi = makeAvahiClientApi(*client);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client()
    {
        // Null without a system bus, despite AVAHI_CLIENT_NO_FAIL.
        if (client != nullptr)
            avahi_client_free(client);
    }

    bool isLost() const { return client == nullptr || state == AVAHI_CLIENT_FAILURE; }
    bool isAnswering() const
    {
        return isRunning() || state == AVAHI_CLIENT_S_REGISTERING
               || state == AVAHI_CLIENT_S_COLLISION;
    }
    bool isRunning() const { return state == AVAHI_CLIENT_S_RUNNING; }

    AvahiApi& api() const { return *avahiApi; }

    std::string hostName() const
    {
        const char* name = isRunning() ? avahi_client_get_host_name_fqdn(client) : nullptr;
        return name == nullptr ? "" : name;
    }

    const Clock::time_point since = Clock::now();

private:
    // Also called inside avahi_client_new; must not free anything.
    static void onState(AvahiClient* /*client*/, AvahiClientState newState, void* context)
    {
        static_cast<Client*>(context)->state = newState;
    }

    AvahiClientState state = AVAHI_CLIENT_CONNECTING;
    AvahiClient* client = nullptr;
    std::unique_ptr<AvahiApi> avahiApi;
};

class Daemon final {
public:
    [[noreturn]] void run()
    {
        do {
            if (!client && Clock::now() >= nextTry)
                client = std::make_unique<Client>(frame.poll());
            if (client)
                serve(Clock::now());
        } while (frame.turn(deadline()));
        // Frees nothing: the daemon withdraws what a process has published as soon as it has ended,
        // and each call to the daemon could hang.
        std::_Exit(frame.exitStatus());
    }

private:
    void serve(Clock::time_point now)
    {
        if (client->isLost() || frame.isBroken()) {
            nextTry = now + backoff.next();
            frame.goDown();
            client = nullptr;
        } else if (!client->isAnswering()) {
            frame.goDown();
        } else if (!frame.isUp()
                   && (client->isRunning() || now >= client->since + kHostNamePatience)) {
            backoff.reset();
            frame.comeUp(client->api(), client->hostName());
        }
    }

    /// When to do something even if nothing happens.
    std::optional<Clock::time_point> deadline() const
    {
        if (!client)
            return nextTry;
        if (client->isAnswering() && !frame.isUp())
            return client->since + kHostNamePatience;
        return std::nullopt;
    }

    ProcessFrame frame;
    Backoff backoff{kFirstPause, kLongestPause};
    Clock::time_point nextTry = Clock::now();
    std::unique_ptr<Client> client;
};

} // namespace

} // namespace quillbox::dnssd

int main()
{
    quillbox::dnssd::Daemon().run();
}
