#pragma once

#include "platform/dnssd/engine/automatic_engine.h"
#include "tests/platform/dnssd/engines/engine_on_pool.h"
#include "tests/platform/dnssd/engines/event_recorder.h"
#include "tests/platform/dnssd/engines/test_network.h"

#include <memory>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace quillbox::dnssd {

/// Tests of real engines on a network of two hosts.
class EngineNetworkTest : public testing::Test {
protected:
    static void SetUpTestSuite() { network = std::make_unique<TestNetwork>(); }
    static void TearDownTestSuite() { network.reset(); }

    void SetUp() override
    {
        if (!isInPrivateNetwork())
            GTEST_SKIP() << "no network namespace can be created here";
        ASSERT_TRUE(network->isReady());
    }

    /// Called by tests that need avahi-daemon.
    void skipWithoutDaemon()
    {
        if (!isDaemonPossible())
            GTEST_SKIP() << "avahi-daemon cannot run here";
    }

    static Address address(const char* text)
    {
        Address result;
        ::inet_pton(AF_INET, text, result.bytes.data());
        return result;
    }

    static RegisterRequest registration(RequestId id, const std::string& name,
                                        const std::string& hostName)
    {
        return {.id = id,
                .name = name,
                .type = "_smb._tcp",
                .port = 4445,
                .hostName = hostName,
                .addresses = {{network->interfaceHere(), address(TestNetwork::kAddressHere)}}};
    }

    static inline std::unique_ptr<TestNetwork> network;
};

} // namespace quillbox::dnssd
