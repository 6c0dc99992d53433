#include "platform/dnssd/processes/engine_child.h"

#include "platform/dnssd/engine/message_codec.h"
#include "platform/dnssd/processes/alias_filter.h"
#include "platform/dnssd/processes/avahi_loop.h"
#include "platform/dnssd/processes/avahi_server_api.h"
#include "platform/dnssd/processes/avahi_session.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quillbox::dnssd {

namespace {

using Clock = std::chrono::steady_clock;

/// Time limit, in seconds, for withdrawing all services when the process ends.
constexpr unsigned kLastSeconds = 1;

/// Avahi logs text from network packets, at whatever rate these arrive.
void ignoreLog(AvahiLogLevel /*level*/, const char* /*text*/) {}

/// Returns a signalfd that becomes readable on SIGTERM.
int hardenProcess()
{
    // Started as /proc/self/exe, it would be listed as "exe".
    ::prctl(PR_SET_NAME, "quillbox-dns-sd");

    // When the terminal interrupts both processes, the parent stops first and closes the socket,
    // which ends this one.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);

    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);

    // When the parent dies, the socket closes, which leaves time for goodbyes. The signal is for a
    // process that hangs.
    std::signal(SIGUSR1, [](int) { ::alarm(kLastSeconds); });
    ::prctl(PR_SET_PDEATHSIG, SIGUSR1);
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);

    // Any host on the network can make libavahi-core abort: no core files for that.
    const rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);

    return ::signalfd(-1, &endSignals, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// Detects that the wall clock was set back. Avahi's timers use the wall clock: setting it back by
/// a year delays them by a year, and a phone that has left stays in the list for as long.
class WallClock final {
public:
    /// Whether it was set back since the last call, by more than slewing can account for. The loop
    /// iterates, at the latest, when Avahi's next timer would have been due.
    bool wasSetBack()
    {
        constexpr std::chrono::seconds kTolerance(2);
        const auto now = ahead();
        return now + kTolerance < std::exchange(before, now);
    }

private:
    static std::chrono::nanoseconds ahead()
    {
        return std::chrono::system_clock::now().time_since_epoch()
               - Clock::now().time_since_epoch();
    }

    std::chrono::nanoseconds before = ahead();
};

class EngineChild final {
public:
    EngineChild(int theSocket, int endSignal) : socket(theSocket)
    {
        loop.watch(socket, [this] { receive(); });
        if (endSignal >= 0)
            loop.watch(endSignal, [this] { isEnding = true; });
    }
    EngineChild(const EngineChild&) = delete;
    EngineChild& operator=(const EngineChild&) = delete;
    ~EngineChild()
    {
        // Ends the process even if something below hangs.
        ::alarm(kLastSeconds);
    }

    int run()
    {
        if (!startServer())
            return EXIT_FAILURE;
        auto nextSign = Clock::now();
        while (!isEnding) {
            if (Clock::now() >= nextSign) {
                send(Alive{});
                nextSign = Clock::now() + kAliveInterval;
            }
            loop.turn(std::min(session->nextDeadline().value_or(nextSign), nextSign));
            // The parent starts another process. No goodbyes, since the services are to stay
            // published.
            if (wallClock.wasSetBack())
                std::_Exit(EXIT_FAILURE);
            session->tidy(Clock::now());
            if (hasFailed)
                return EXIT_FAILURE;
        }
        return EXIT_SUCCESS;
    }

private:
    bool startServer()
    {
        if (!library)
            return false;
        library->set_log_function(ignoreLog);
        AvahiServerConfig configuration;
        library->server_config_init(&configuration);
        configuration.use_ipv4 = 1;
        configuration.use_ipv6 = 1;
        configuration.enable_wide_area = 0;
        configuration.disallow_other_stacks = 0;
        // Every service has its own host name. The computer's host name belongs to the responder
        // that the computer may have: two that publish its addresses would conflict forever. So the
        // server itself publishes nothing that could conflict, and is running at once.
        configuration.publish_addresses = 0;
        configuration.publish_hinfo = 0;
        configuration.publish_workstation = 0;
        configuration.publish_domain = 0;

        int error = 0;
        server = {
            library->server_new(filter.poll(), &configuration, &EngineChild::onState, this, &error),
            library->server_free};
        library->server_config_free(&configuration);
        if (server == nullptr || hasFailed)
            return false;
        api = makeAvahiServerApi(*library, *server);
        session.emplace(*api, [this](const Event& event) { send(event); });
        send(EngineUp{library->server_get_host_name_fqdn(server.get())});
        return true;
    }

    static void onState(AvahiServer* /*server*/, AvahiServerState state, void* context)
    {
        if (state == AVAHI_SERVER_FAILURE)
            static_cast<EngineChild*>(context)->hasFailed = true;
    }

    void receive()
    {
        std::array<std::uint8_t, kMaximumPacketLength> packet;
        const ssize_t length = ::recv(socket, packet.data(), packet.size(), MSG_DONTWAIT);
        if (length < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        if (length <= 0) {
            isEnding = true;
            return;
        }
        const auto request =
            decodeRequest(std::span(packet).first(static_cast<std::size_t>(length)));
        if (request)
            session->handle(*request, Clock::now());
        else
            hasFailed = true; // not from our parent
    }

    /// Blocks while the socket is full; the parent never stops reading.
    void send(const Event& event)
    {
        const Packet packet = encode(event);
        if (packet.empty() || isEnding)
            return;
        if (::send(socket, packet.data(), packet.size(), MSG_NOSIGNAL) < 0 && errno != EINTR)
            isEnding = true;
    }

    int socket;
    WallClock wallClock;
    AvahiLoop loop;
    AliasFilter filter{*loop.poll()};
    std::optional<AvahiServerLibrary> library = loadAvahiServerLibrary();
    bool isEnding = false;
    bool hasFailed = false;
    /// Freeing it sends the remaining goodbyes.
    std::unique_ptr<AvahiServer, void (*)(AvahiServer*)> server{nullptr, nullptr};
    std::unique_ptr<AvahiApi> api;
    std::optional<AvahiSession> session;
};

} // namespace

int runDnsSdEngineChild(int descriptor)
{
    const int endSignal = hardenProcess();
    return EngineChild(descriptor, endSignal).run();
}

} // namespace quillbox::dnssd
