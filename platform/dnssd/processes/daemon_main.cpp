// quillbox-dns-sd-daemon: an engine on top of avahi-daemon, over the system bus (libavahi-client);
// up while the daemon runs.
//
// Without a bus it reconnects when the bus's socket appears, and otherwise with exponential backoff
// up to 10 s; with a bus it waits for the daemon without doing anything.

#include "platform/dnssd/avahi/avahi_api.h"
#include "platform/dnssd/processes/bus_watch.h"
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

constexpr std::chrono::milliseconds kFirstPause(100);
constexpr std::chrono::milliseconds kLongestPause(10'000);
/// A connection that lasted so long was no failed attempt, and the pauses begin anew.
constexpr std::chrono::milliseconds kSteadyAfter(800);
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
    Daemon()
    {
        if (busWatch.descriptor() >= 0)
            frame.loop().watch(busWatch.descriptor(), [this] { onBusChanged(); });
    }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;
    ~Daemon() = default;

    [[noreturn]] void run()
    {
        do {
            if (!client && Clock::now() >= nextTry)
                connect();
            if (client)
                serve(Clock::now());
        } while (frame.turn(deadline()));
        // Frees nothing: the daemon withdraws what a process has published as soon as it has ended,
        // and each call to the daemon could hang.
        std::_Exit(frame.exitStatus());
    }

private:
    void connect()
    {
        busWatch.begin(); // before connecting, or a socket that appears now is missed
        client = std::make_unique<Client>(frame.loop().poll());
        if (!client->isLost())
            busWatch.end();
    }

    void serve(Clock::time_point now)
    {
        if (client->isLost() || frame.isBroken()) {
            disconnect(now);
        } else if (!client->isAnswering()) {
            frame.goDown();
        } else if (!frame.isUp()
                   && (client->isRunning() || now >= client->since + kHostNamePatience)) {
            upSince = now;
            frame.comeUp(client->api(), client->hostName());
        }
    }

    void disconnect(Clock::time_point now)
    {
        if (upSince && now - *upSince >= kSteadyAfter)
            backoff.reset();
        upSince.reset();
        nextTry = now + backoff.next();
        frame.goDown();
        client = nullptr;
    }

    void onBusChanged()
    {
        if (!busWatch.hasSocketAppeared() || client)
            return;
        backoff.reset();
        nextTry = Clock::now();
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
    BusWatch busWatch;
    Backoff backoff{kFirstPause, kLongestPause};
    Clock::time_point nextTry = Clock::now();
    std::unique_ptr<Client> client;
    std::optional<Clock::time_point> upSince;
};

} // namespace

} // namespace quillbox::dnssd

int main()
{
    quillbox::dnssd::Daemon().run();
}
