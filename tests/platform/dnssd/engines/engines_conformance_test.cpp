#include "platform/dispatch/dispatch_pool.h"
#include "platform/dnssd/dns_sd_center.h"
#include "platform/dnssd/engine/engine_process.h"
#include "platform/standard_error_log.h"
#include "tests/fakes/fake_network_monitor.h"
#include "tests/platform/dnssd/conformance.h"
#include "tests/platform/dnssd/engines/engine_processes.h"
#include "tests/platform/dnssd/engines/test_network.h"

#include <csignal>
#include <filesystem>
#include <optional>
#include <thread>

#include <unistd.h>

namespace quillbox {

namespace {

using dnssd::TestBus;
using dnssd::TestDaemon;
using dnssd::TestNetwork;
using dnssd::TestZeroconf;

/// The engine under test on this host, and an engine process on the other host.
class EngineHarness : public DnsSdHarness {
public:
    ~EngineHarness() override
    {
        poolHere.shutdown();
        poolThere->shutdown();
    }

    DnsSd& here() override { return *dnsSdHere; }
    DnsSd& there() override { return *dnsSdThere; }
    std::string hostNameThere() const override { return "there.local"; }
    std::shared_ptr<DispatchQueue> queue() override { return handlers; }

    bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) override
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!condition() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return condition();
    }

protected:
    void start(const std::string& program)
    {
        const int interfaceHere = network.interfaceHere();
        const int interfaceThere = network.interfaceThere();
        monitorHere.setAddresses(
            {interfaceAddress(1, "lo", "127.0.0.1"),
             interfaceAddress(interfaceHere, "here0", TestNetwork::kAddressHere),
             interfaceAddress(interfaceHere, "here0", "fe80::77:1")});
        monitorThere.setAddresses(
            {interfaceAddress(1, "lo", "127.0.0.1"),
             interfaceAddress(interfaceThere, "there0", TestNetwork::kAddressThere),
             interfaceAddress(interfaceThere, "there0", "fe80::77:2")});
        dnsSdHere = make(poolHere, program, monitorHere);
        // The threads of the pool are there, too, and so are the processes that they start.
        network.doThere([this] { poolThere.emplace(); });
        dnsSdThere = make(*poolThere, dnssd::engineProgram(dnssd::kResponderProgram), monitorThere);
    }

    TestNetwork network;

private:
    std::unique_ptr<DnsSd> make(DispatchPool& pool, const std::string& program,
                                NetworkMonitor& monitor)
    {
        const auto dnsSdQueue = pool.makeQueue("dns-sd", QualityOfService::Utility);
        return makeDnsSd(
            dnssd::makeEngineProcess(dnsSdQueue, *log, {.program = program, .name = "engine"}),
            dnsSdQueue, monitor, *log);
    }

    // An engine process does not publish the name of its computer, so zeroconf does.
    TestZeroconf computerThere{network,
                               {"publish", "There", "_device-info._tcp", "there.local", "9"}};
    const std::unique_ptr<Log> log = makeStandardErrorLog({});
    DispatchPool poolHere;
    std::optional<DispatchPool> poolThere;
    std::shared_ptr<DispatchQueue> handlers =
        poolHere.makeQueue("handlers", QualityOfService::Utility);
    FakeNetworkMonitor monitorHere;
    FakeNetworkMonitor monitorThere;
    std::unique_ptr<DnsSd> dnsSdHere;
    std::unique_ptr<DnsSd> dnsSdThere;
};

class DaemonHarness final : public EngineHarness {
public:
    DaemonHarness() { start(dnssd::engineProgram(dnssd::kDaemonProgram)); }

    void takeEngineAway() override { daemon->signal(SIGKILL); }
    void bringEngineBack() override
    {
        daemon = nullptr;
        daemon = std::make_unique<TestDaemon>();
    }

private:
    TestBus bus;
    std::unique_ptr<TestDaemon> daemon = std::make_unique<TestDaemon>();
};

/// Uses a copy of the program. While that is not executable, the engine cannot restart its process.
class EmbeddedHarness final : public EngineHarness {
public:
    EmbeddedHarness()
    {
        std::filesystem::copy_file(dnssd::engineProgram(dnssd::kResponderProgram), kCopy);
        start(kCopy);
    }

    void takeEngineAway() override
    {
        std::filesystem::permissions(kCopy, std::filesystem::perms::none);
        for (const pid_t process : dnssd::engineProcessesOf(::getpid())) {
            const auto file = "/proc/" + std::to_string(process) + "/exe";
            if (std::filesystem::read_symlink(file) == kCopy)
                ::kill(process, SIGKILL);
        }
    }
    void bringEngineBack() override
    {
        std::filesystem::permissions(kCopy, std::filesystem::perms::owner_all);
    }

private:
    static constexpr const char* kCopy = "/run/quillbox-test/quillbox-dns-sd-responder";
};

void skip(const char* reason)
{
    GTEST_SKIP() << reason;
}

std::unique_ptr<DnsSdHarness> makeDaemonHarness()
{
    if (!dnssd::isDaemonPossible()) {
        skip("no namespace for avahi-daemon can be created here");
        return nullptr;
    }
    return std::make_unique<DaemonHarness>();
}

std::unique_ptr<DnsSdHarness> makeEmbeddedHarness()
{
    if (!dnssd::isInPrivateNetwork()) {
        skip("no network namespace can be created here");
        return nullptr;
    }
    return std::make_unique<EmbeddedHarness>();
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Engines, DnsSdConformance,
                         testing::Values(DnsSdHarnessFactory{"daemon", makeDaemonHarness},
                                         DnsSdHarnessFactory{"embedded", makeEmbeddedHarness}),
                         [](const auto& parameter) { return parameter.param.name; });

} // namespace quillbox
