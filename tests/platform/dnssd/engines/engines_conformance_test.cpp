#include "platform/dispatch/dispatch_pool.h"
#include "platform/dnssd/dns_sd_center.h"
#include "platform/dnssd/engine/embedded_engine.h"
#include "platform/dnssd/processes/daemon_engine.h"
#include "tests/fakes/fake_network_monitor.h"
#include "tests/platform/dnssd/conformance.h"
#include "tests/platform/dnssd/engines/engine_process_finder.h"
#include "tests/platform/dnssd/engines/test_network.h"

#include <csignal>
#include <filesystem>
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
        dnsSdHere = nullptr;
        dnsSdThere = nullptr;
        pool.shutdown();
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
    void start(std::unique_ptr<dnssd::Engine> engine)
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
        dnsSdHere = makeDnsSd(std::move(engine), makeQueue("here"), monitorHere);
        network.doThere([this] {
            dnsSdThere = makeDnsSd(dnssd::makeEmbeddedEngine(), makeQueue("there"), monitorThere);
        });
    }

    TestNetwork network;

private:
    std::shared_ptr<DispatchQueue> makeQueue(const char* label)
    {
        return pool.makeQueue(label, QualityOfService::Utility);
    }

    // An engine process does not publish the name of its computer, so zeroconf does.
    TestZeroconf computerThere{network,
                               {"publish", "There", "_device-info._tcp", "there.local", "9"}};
    DispatchPool pool;
    std::shared_ptr<DispatchQueue> handlers = makeQueue("handlers");
    FakeNetworkMonitor monitorHere;
    FakeNetworkMonitor monitorThere;
    std::unique_ptr<DnsSd> dnsSdHere;
    std::unique_ptr<DnsSd> dnsSdThere;
};

class DaemonHarness final : public EngineHarness {
public:
    DaemonHarness() { start(dnssd::makeDaemonEngine()); }

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

/// Starts the engine process through a symbolic link. While the link is removed, the engine cannot
/// restart it.
class EmbeddedHarness final : public EngineHarness {
public:
    EmbeddedHarness()
    {
        bringEngineBack();
        start(dnssd::makeEmbeddedEngine({.executable = kLink}));
    }

    void takeEngineAway() override
    {
        std::filesystem::remove(kLink);
        for (const pid_t process : dnssd::engineProcessesOf(::getpid())) {
            const auto executable =
                dnssd::commandLineOf(process).substr(0, std::string(kLink).size());
            if (executable == kLink)
                ::kill(process, SIGKILL);
        }
    }
    void bringEngineBack() override
    {
        std::filesystem::create_symlink(std::filesystem::read_symlink("/proc/self/exe"), kLink);
    }

private:
    static constexpr const char* kLink = "/run/quillbox-test/engine";
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
