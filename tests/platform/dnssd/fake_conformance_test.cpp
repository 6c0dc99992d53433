#include "platform/dnssd/dns_sd_center.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_engine.h"
#include "tests/fakes/fake_network_monitor.h"
#include "tests/fakes/recording_log.h"
#include "tests/platform/dnssd/conformance.h"

namespace quillbox {

namespace {

constexpr std::chrono::milliseconds kStep{10};

class FakeHarness final : public DnsSdHarness {
public:
    FakeHarness()
    {
        monitorHere.setAddresses({interfaceAddress(1, "lo", "127.0.0.1"),
                                  interfaceAddress(2, "eth0", "10.0.0.1"),
                                  interfaceAddress(2, "eth0", "fe80::1")});
        monitorThere.setAddresses({interfaceAddress(1, "lo", "127.0.0.1"),
                                   interfaceAddress(3, "wlan0", "10.0.0.2"),
                                   interfaceAddress(3, "wlan0", "fe80::2")});
        dnsSdHere =
            makeDnsSd(medium.makeEngine({"here.local", 2, {dnssd::address("10.0.0.1")}}),
                      dispatch.makeQueue("here", QualityOfService::Utility), monitorHere, log);
        dnsSdThere =
            makeDnsSd(medium.makeEngine({"there.local", 3, {dnssd::address("10.0.0.2")}}),
                      dispatch.makeQueue("there", QualityOfService::Utility), monitorThere, log);
    }

    DnsSd& here() override { return *dnsSdHere; }
    DnsSd& there() override { return *dnsSdThere; }
    std::string hostNameThere() const override { return "there.local"; }
    std::shared_ptr<DispatchQueue> queue() override { return dispatch.mainQueue(); }

    bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) override
    {
        dispatch.runAll();
        for (auto passed = kStep; !condition() && passed <= limit; passed += kStep)
            dispatch.advance(kStep);
        return condition();
    }

    void takeEngineAway() override { medium.takeAway("here.local"); }
    void bringEngineBack() override { medium.bringBack("here.local"); }

private:
    FakeDispatch dispatch;
    dnssd::FakeMedium medium{dispatch.makeQueue("medium", QualityOfService::Utility)};
    RecordingLog log;
    FakeNetworkMonitor monitorHere;
    FakeNetworkMonitor monitorThere;
    std::unique_ptr<DnsSd> dnsSdHere;
    std::unique_ptr<DnsSd> dnsSdThere;
};

std::unique_ptr<DnsSdHarness> makeFakeHarness()
{
    return std::make_unique<FakeHarness>();
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Fake, DnsSdConformance,
                         testing::Values(DnsSdHarnessFactory{"fake", makeFakeHarness}));

} // namespace quillbox
