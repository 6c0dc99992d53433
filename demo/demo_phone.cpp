// The DNS-SD side of a simulated phone: advertises its file service and its management service, as
// the phone app does, and browses for the server that the helper advertises for it. It prints one
// JSON object per line. SIGTERM and SIGINT end it, with goodbyes (RFC 6762, section 10.1).

#include "platform/dispatch/dispatch_pool.h"
#include "platform/dnssd/dns_sd_center.h"
#include "platform/dnssd/engine/automatic_engine.h"
#include "platform/netlink/netlink_monitor.h"
#include "platform/standard_error_log.h"
#include "platform/values/reach.h"
#include "platform/values/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <netdb.h>
#include <netinet/in.h>

namespace quillbox {
namespace {

constexpr const char* kNoRelay = R"({"relay": null})";

struct Options {
    std::string name;
    std::uint16_t filePort = 0;
    std::uint16_t managementPort = 0;
    DnsSdMode mode = DnsSdMode::Automatic;
    Reach reach = Reach::ThisComputer;
};

std::optional<std::uint16_t> portFrom(std::string_view text)
{
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port == 0)
        return std::nullopt;
    return port;
}

std::optional<DnsSdMode> modeFrom(std::string_view text)
{
    if (text == "auto")
        return DnsSdMode::Automatic;
    if (text == "daemon")
        return DnsSdMode::Daemon;
    if (text == "embedded")
        return DnsSdMode::Embedded;
    return std::nullopt;
}

std::optional<Reach> reachFrom(std::string_view text)
{
    if (text == "this-computer")
        return Reach::ThisComputer;
    if (text == "network")
        return Reach::Network;
    return std::nullopt;
}

std::optional<Options> optionsFrom(const std::vector<std::string_view>& arguments)
{
    if (arguments.size() != 5)
        return std::nullopt;
    const auto filePort = portFrom(arguments[1]);
    const auto managementPort = portFrom(arguments[2]);
    const auto mode = modeFrom(arguments[3]);
    const auto reach = reachFrom(arguments[4]);
    if (!filePort || !managementPort || !mode || !reach)
        return std::nullopt;
    return Options{std::string(arguments[0]), *filePort, *managementPort, *mode, *reach};
}

struct Place {
    std::string host;
    std::string port;
    bool isLoopback = false;
};

std::optional<Place> placeOf(const SocketAddress& address)
{
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    sockaddr_storage storage{};
    if (address.size() > sizeof storage)
        return std::nullopt;
    std::memcpy(&storage, address.data(), address.size());
    if (storage.ss_family != AF_INET)
        return std::nullopt;
    if (getnameinfo(reinterpret_cast<const sockaddr*>(&storage),
                    static_cast<socklen_t>(address.size()), host.data(), host.size(), port.data(),
                    port.size(), NI_NUMERICHOST | NI_NUMERICSERV)
        != 0)
        return std::nullopt;
    return Place{host.data(), port.data(), std::string_view(host.data()).starts_with("127.")};
}

/// Prints the address of the server that the helper advertises for this phone: its loopback address
/// if it has one.
class RelayWatch {
public:
    RelayWatch(DnsSd& dnsSd, std::shared_ptr<DispatchQueue> queue, std::string name)
        : dnsSd_(dnsSd), queue_(std::move(queue)), name_(std::move(name))
    {
        browse_ = dnsSd_.browse("_smb._tcp", queue_, [this](const DnsSd::BrowseUpdate& update) {
            if (update.state == DnsSd::BrowseUpdate::State::Ready)
                servicesChanged(update.services);
        });
    }

private:
    void servicesChanged(const std::vector<ServiceEndpoint>& services)
    {
        const auto ours =
            std::find_if(services.begin(), services.end(), [this](const ServiceEndpoint& service) {
                return canonicallyEqual(service.name, name_);
            });
        if (ours == services.end()) {
            resolution_ = nullptr;
            tell(kNoRelay);
        } else if (!resolution_) {
            resolution_ = dnsSd_.resolve(*ours, queue_, [this](const DnsSd::ResolveUpdate& update) {
                addressesChanged(update.addresses);
            });
        }
    }

    void addressesChanged(const std::vector<DnsSd::FoundAddress>& addresses)
    {
        std::optional<Place> best;
        for (const DnsSd::FoundAddress& found : addresses) {
            const auto place = placeOf(found.address);
            if (place && (!best || (place->isLoopback && !best->isLoopback)))
                best = place;
        }
        if (best)
            tell(R"({"relay": {"host": ")" + best->host + R"(", "port": )" + best->port + "}}");
    }

    void tell(const std::string& text)
    {
        if (text == told_)
            return;
        told_ = text;
        std::cout << text << std::endl;
    }

    DnsSd& dnsSd_;
    const std::shared_ptr<DispatchQueue> queue_;
    const std::string name_;
    std::string told_ = kNoRelay;
    std::unique_ptr<DnsSd::Subscription> browse_;
    std::unique_ptr<DnsSd::Subscription> resolution_;
};

/// The loopback address on which the file service is announced, which is not 127.0.0.1.
void tellAddress(const DnsSd::OwnServiceUpdate& update)
{
    if (update.service)
        std::cout << R"({"address": ")" << update.service->onLoopback.host << R"("})" << std::endl;
}

void tellRegistration(const char* what, const DnsSd::RegistrationUpdate& update)
{
    if (update.state == DnsSd::RegistrationUpdate::State::Ready)
        std::cout << R"({"advertised": ")" << what << R"("})" << std::endl;
    else if (update.error)
        std::cerr << "demo phone: " << what << ": " << update.error.message() << std::endl;
}

int run(const Options& options)
{
    // Blocked before any thread is created, so that only sigwait() below receives these signals.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);

    const auto log = makeStandardErrorLog({});
    DispatchPool pool;
    const auto monitor = makeNetworkMonitor(pool);
    const auto dnsSdQueue = pool.makeQueue("demo.dns-sd", QualityOfService::Utility);
    const auto dnsSd = makeDnsSd(dnssd::makeEngine(options.mode, dnsSdQueue, *log), dnsSdQueue,
                                 *monitor, *log, options.reach);
    const auto queue = pool.makeQueue("demo.phone", QualityOfService::Utility);
    {
        const auto files = dnsSd->registerService(
            {.name = options.name, .type = "_quillbox._tcp"}, options.filePort, queue,
            [](const DnsSd::RegistrationUpdate& update) { tellRegistration("files", update); });
        const auto management = dnsSd->registerService(
            {.name = options.name, .type = "_quillbox-admin._tcp"}, options.managementPort, queue,
            [](const DnsSd::RegistrationUpdate& update) {
                tellRegistration("management", update);
            });
        const auto address = dnsSd->findOwn(options.name, "_quillbox._tcp", queue, tellAddress);
        const RelayWatch relay(*dnsSd, queue, options.name);
        int signal = 0;
        sigwait(&ends, &signal);
        pool.shutdown();
    }
    return 0;
}

} // namespace
} // namespace quillbox

int main(int argc, char** argv)
{
    const std::vector<std::string_view> arguments(argv + 1, argv + argc);
    const auto options = quillbox::optionsFrom(arguments);
    if (!options) {
        std::cerr << "usage: quillbox-demo-phone NAME FILE-PORT MANAGEMENT-PORT "
                     "auto|daemon|embedded this-computer|network\n";
        return 2;
    }
    return quillbox::run(*options);
}
