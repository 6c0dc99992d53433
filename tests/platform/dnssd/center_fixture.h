#pragma once

#include "platform/dnssd/dns_sd_center.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_engine.h"
#include "tests/fakes/fake_network_monitor.h"
#include "tests/fakes/recording_log.h"
#include "tests/platform/dnssd/recorder.h"

#include <chrono>
#include <memory>
#include <utility>

#include <gtest/gtest.h>

namespace quillbox {

inline constexpr dnssd::Sighting kWired{2, dnssd::Family::IPv4};
inline constexpr dnssd::Sighting kWiredIPv6{2, dnssd::Family::IPv6};
inline constexpr dnssd::Sighting kWireless{3, dnssd::Family::IPv4};

/// A `DnsSd` with a fake engine and a fake clock.
class CenterTest : public testing::Test {
protected:
    CenterTest() { dispatch.runAll(); }

    void emit(dnssd::Event event)
    {
        engine.emit(std::move(event));
        dispatch.runAll();
    }

    void up()
    {
        engine.up();
        dispatch.runAll();
    }

    void down(std::error_code error = {})
    {
        engine.down(error);
        dispatch.runAll();
    }

    FakeDispatch dispatch;
    FakeNetworkMonitor monitor;
    RecordingLog logged;
    dnssd::FakeEngine engine;
    std::unique_ptr<DnsSd> dnsSd =
        makeDnsSd(engine.makeEngine(), dispatch.makeQueue("dns-sd", QualityOfService::Utility),
                  monitor, logged);
};

} // namespace quillbox
