#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/dns_sd.h"

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

namespace quillbox {

/// What the conformance suite of `DnsSd` needs of the world around it: two hosts on one link, each
/// with a `DnsSd` of its own. Both hosts have on that link an IPv4 address and a link-local IPv6
/// address; nothing else is advertised there.
class DnsSdHarness {
public:
    virtual ~DnsSdHarness() = default;

    /// The `DnsSd` whose engine is under test.
    virtual DnsSd& here() = 0;

    /// The `DnsSd` of the other host.
    virtual DnsSd& there() = 0;

    /// The computer name of the other host, like "there.local". Its addresses are published.
    virtual std::string hostNameThere() const = 0;

    /// A serial queue for handlers.
    virtual std::shared_ptr<DispatchQueue> queue() = 0;

    /// Lets time pass until `condition` holds; false when it does not within `limit`. The condition
    /// is evaluated on the calling thread and locks what it shares with handlers by itself.
    virtual bool waitUntil(const std::function<bool()>& condition,
                           std::chrono::milliseconds limit) = 0;

    /// Makes the engine behind `here()` go without a word, and come back.
    virtual void takeEngineAway() = 0;
    virtual void bringEngineBack() = 0;
};

/// How the suite is plugged in: `INSTANTIATE_TEST_SUITE_P(Name, DnsSdConformance, Values(...))` in
/// an executable that also lists conformance.cpp among its sources.
struct DnsSdHarnessFactory {
    std::string name;
    std::function<std::unique_ptr<DnsSdHarness>()> make;
};

inline void PrintTo(const DnsSdHarnessFactory& factory, std::ostream* stream)
{
    *stream << factory.name;
}

class DnsSdConformance : public testing::TestWithParam<DnsSdHarnessFactory> {
protected:
    void SetUp() override
    {
        harness = GetParam().make(); // or skips the test
        if (!IsSkipped()) {
            ASSERT_TRUE(harness);
        }
    }

    void TearDown() override { harness = nullptr; }

    std::unique_ptr<DnsSdHarness> harness;
};

} // namespace quillbox
