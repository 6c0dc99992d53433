#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dns_sd.h"

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

namespace quillbox {

/// The environment of the `DnsSd` conformance suite: two hosts on one link, each with its own
/// `DnsSd`. Each host has an IPv4 address and a link-local IPv6 address on that link. Nothing else
/// advertises services of the types under test there.
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

    /// Waits until `condition` holds; false if it does not within `limit`. The condition is
    /// evaluated on the calling thread and must itself lock what it shares with handlers.
    virtual bool waitUntil(const std::function<bool()>& condition,
                           std::chrono::milliseconds limit) = 0;

    /// Makes the engine behind `here()` unavailable without a shutdown, and available again.
    virtual void takeEngineAway() = 0;
    virtual void bringEngineBack() = 0;
};

/// To run the suite, use `INSTANTIATE_TEST_SUITE_P(Name, DnsSdConformance, Values(...))` in an
/// executable that also lists conformance.cpp among its sources.
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
