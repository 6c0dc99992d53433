#include "platform/dnssd/processes/daemon_engine.h"

#include "platform/dnssd/engine/engine_pause.h"
#include "platform/dnssd/engine/engine_thread.h"
#include "platform/dnssd/processes/avahi_client_api.h"
#include "platform/dnssd/processes/avahi_loop.h"
#include "platform/dnssd/processes/avahi_session.h"
#include "platform/dnssd/processes/daemon_engine_bus_watch.h"

#include <optional>
#include <string>
#include <utility>

#include <avahi-client/client.h>
#include <avahi-common/error.h>

namespace quillbox::dnssd {

namespace {

using Clock = std::chrono::steady_clock;
using Mailbox = EngineMailbox<PostedRequest>;

constexpr std::chrono::milliseconds kFirstPause(100);
constexpr std::chrono::seconds kMaximumPause(10);
/// A connection that lasted so long was no failed attempt, and the pauses begin anew.
constexpr std::chrono::milliseconds kSteadyAfter(800);
/// How long to wait for the daemon to establish the computer's host name. A daemon that has none is
/// still usable, since services are published on host names of their own.
constexpr std::chrono::seconds kHostNamePatience(2);

/// A client of the daemon and everything requested through it. Recreated after each failure.
class Connection final {
public:
    explicit Connection(const AvahiLoop& loop) : library(loadAvahiClientLibrary())
    {
        if (!library)
            return;
        int error = AVAHI_OK;
        client = library->client_new(loop.poll(), AVAHI_CLIENT_NO_FAIL, &Connection::onState, this,
                                     &error);
        if (client != nullptr)
            api = makeAvahiClientApi(*library, *client);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection()
    {
        session.reset();
        api.reset();
        // Null without a system bus, despite AVAHI_CLIENT_NO_FAIL.
        if (client != nullptr)
            library->client_free(client);
    }

    bool isLost() const
    {
        return client == nullptr || state == AVAHI_CLIENT_FAILURE
               || (session && session->isBroken());
    }
    bool isAnswering() const
    {
        return state == AVAHI_CLIENT_S_RUNNING || state == AVAHI_CLIENT_S_REGISTERING
               || state == AVAHI_CLIENT_S_COLLISION;
    }
    bool isRunning() const { return state == AVAHI_CLIENT_S_RUNNING; }

    std::string hostName() const
    {
        const char* name = isRunning() ? library->client_get_host_name_fqdn(client) : nullptr;
        return name == nullptr ? "" : name;
    }

    std::optional<AvahiClientLibrary> library;
    AvahiClient* client = nullptr;
    std::unique_ptr<AvahiApi> api;
    std::unique_ptr<AvahiSession> session; ///< set while the engine is up
    std::string publishedHostName;
    Clock::time_point since = Clock::now();

private:
    // Also called inside avahi_client_new; must not free anything.
    static void onState(AvahiClient* /*client*/, AvahiClientState newState, void* context)
    {
        static_cast<Connection*>(context)->state = newState;
    }

    AvahiClientState state = AVAHI_CLIENT_CONNECTING;
};

class DaemonLoop final {
public:
    explicit DaemonLoop(Mailbox& theMailbox) : mailbox(theMailbox)
    {
        loop.watch(mailbox.descriptor(), [this] { takeRequests(); });
        if (busWatch.descriptor() >= 0)
            loop.watch(busWatch.descriptor(), [this] { onBusChanged(); });
    }

    void run()
    {
        while (!isStopping) {
            connectIfDue();
            loop.turn(deadline());
            const auto now = Clock::now();
            if (connection && !connection->isLost())
                serve(now);
            if (connection && connection->isLost())
                disconnect(now);
        }
        connection.reset();
    }

private:
    void connectIfDue()
    {
        if (connection || Clock::now() < nextTry)
            return;
        busWatch.begin(); // before connecting, or a socket that appears now is missed
        connection = std::make_unique<Connection>(loop);
        if (connection->isLost()) {
            disconnect(Clock::now());
        } else {
            busWatch.end();
            serve(Clock::now());
        }
    }

    void serve(Clock::time_point now)
    {
        if (!connection->isAnswering()) {
            reportDown();
            return;
        }
        if (!connection->session) {
            comeUpIfDue(now);
            return;
        }
        connection->session->tidy(now);
        // Services published under the computer's host name must follow when it changes.
        if (connection->isRunning()) {
            auto name = connection->hostName();
            if (!name.empty() && name != connection->publishedHostName) {
                connection->publishedHostName = std::move(name);
                connection->session->hostNameChanged(now);
            }
        }
    }

    void comeUpIfDue(Clock::time_point now)
    {
        if (!connection->isRunning() && now < connection->since + kHostNamePatience)
            return;
        connection->publishedHostName = connection->hostName();
        connection->session = std::make_unique<AvahiSession>(
            *connection->api, [this](Event event) { mailbox.emit(std::move(event)); });
        pause.began(now);
        isReportedDown = false;
        mailbox.emit(EngineUp{connection->publishedHostName, ++generation});
    }

    void disconnect(Clock::time_point now)
    {
        connection.reset();
        nextTry = now + pause.next(now);
        reportDown();
    }

    void reportDown()
    {
        if (!std::exchange(isReportedDown, true))
            mailbox.emit(EngineDown{make_error_code(DnsSdError::EngineUnavailable)});
    }

    void takeRequests()
    {
        const auto taken = mailbox.take();
        isStopping = taken.isStopping;
        if (!connection || !connection->session)
            return;
        const auto now = Clock::now();
        for (const PostedRequest& posted : taken.items) {
            if (posted.generation == generation)
                connection->session->handle(posted.request, now);
        }
    }

    void onBusChanged()
    {
        if (!busWatch.hasSocketAppeared() || connection)
            return;
        pause.shorten();
        nextTry = Clock::now();
    }

    std::optional<Clock::time_point> deadline() const
    {
        if (!connection)
            return nextTry;
        if (connection->session)
            return connection->session->nextDeadline();
        if (connection->isAnswering())
            return connection->since + kHostNamePatience;
        return std::nullopt;
    }

    Mailbox& mailbox;
    AvahiLoop loop;
    DaemonEngineBusWatch busWatch;
    EnginePause pause{kFirstPause, kMaximumPause, kSteadyAfter};
    Clock::time_point nextTry = Clock::now();
    std::unique_ptr<Connection> connection;
    Generation generation = 0;
    bool isReportedDown = false;
    bool isStopping = false;
};

class DaemonEngine final : public Engine {
public:
    void start(EventHandler handler) override
    {
        thread.start(std::move(handler), [](Mailbox& mailbox) { DaemonLoop(mailbox).run(); });
    }

    void send(Generation generation, Request request) override
    {
        thread.post({generation, std::move(request)});
    }

    void stop() override { thread.stop(); }

private:
    EngineThread<PostedRequest> thread;
};

} // namespace

std::unique_ptr<Engine> makeDaemonEngine()
{
    return std::make_unique<DaemonEngine>();
}

} // namespace quillbox::dnssd
