// quillbox-dns-sd-responder: an engine with its own mDNS responder (libavahi-core), which needs no
// daemon, no D-Bus and no privileges.

#include "platform/dnssd/avahi/avahi_api.h"
#include "platform/dnssd/processes/alias_filter.h"
#include "platform/dnssd/processes/process_frame.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <utility>

#include <avahi-core/core.h>
#include <avahi-core/log.h>

namespace quillbox::dnssd {

namespace {

/// Avahi logs text from network packets, at whatever rate these arrive.
void ignoreLog(AvahiLogLevel /*level*/, const char* /*text*/) {}

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
               - std::chrono::steady_clock::now().time_since_epoch();
    }

    std::chrono::nanoseconds before = ahead();
};

using Server = std::unique_ptr<AvahiServer, decltype(&avahi_server_free)>;

/// Null on failure. Sets `hasFailed` when the server fails later.
Server makeServer(const AvahiPoll* poll, bool& hasFailed)
{
    AvahiServerConfig configuration;
    avahi_server_config_init(&configuration);
    configuration.use_ipv4 = 1;
    configuration.use_ipv6 = 1;
    configuration.enable_wide_area = 0;
    configuration.disallow_other_stacks = 0;
    // Every service has its own host name. The computer's host name belongs to the responder that
    // the computer may have: two that publish its addresses would conflict forever. So the server
    // itself publishes nothing that could conflict, and is running at once.
    configuration.publish_addresses = 0;
    configuration.publish_hinfo = 0;
    configuration.publish_workstation = 0;
    configuration.publish_domain = 0;

    const auto onState = [](AvahiServer* /*server*/, AvahiServerState state, void* context) {
        if (state == AVAHI_SERVER_FAILURE)
            *static_cast<bool*>(context) = true;
    };
    int error = 0;
    Server server(avahi_server_new(poll, &configuration, onState, &hasFailed, &error),
                  &avahi_server_free);
    avahi_server_config_free(&configuration);
    return server;
}

int respond()
{
    ProcessFrame frame;
    avahi_set_log_function(ignoreLog);
    const AliasFilter filter(*frame.poll());
    WallClock wallClock;
    bool hasFailed = false;
    // Freeing it sends the remaining goodbyes.
    const Server server = makeServer(filter.poll(), hasFailed);
    if (server == nullptr || hasFailed)
        return EXIT_FAILURE;
    const auto api = makeAvahiServerApi(*server);
    frame.comeUp(*api, avahi_server_get_host_name_fqdn(server.get()));
    while (frame.turn() && !hasFailed) {
        // The program starts another process. No goodbyes, since the services are to stay
        // published.
        if (wallClock.wasSetBack())
            std::_Exit(EXIT_FAILURE);
    }
    frame.end();
    return hasFailed ? EXIT_FAILURE : frame.exitStatus();
}

} // namespace

} // namespace quillbox::dnssd

int main()
{
    return quillbox::dnssd::respond();
}
