#include "platform/tcp/socket_ledger.h"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

} // namespace

TEST(SocketLedger, callsOnceAfterTheNextClose)
{
    SocketLedger ledger;
    ledger.noteOpened();
    ledger.noteOpened();
    int calls = 0;
    ledger.afterNextClose([&calls] { ++calls; });
    EXPECT_EQ(calls, 0);
    ledger.noteClosed();
    EXPECT_EQ(calls, 1);
    ledger.noteClosed();
    EXPECT_EQ(calls, 1);
}

TEST(SocketLedger, letsACallAskForTheOneAfter)
{
    SocketLedger ledger;
    ledger.noteOpened();
    ledger.noteOpened();
    int calls = 0;
    ledger.afterNextClose([&] { ledger.afterNextClose([&calls] { ++calls; }); });
    ledger.noteClosed();
    EXPECT_EQ(calls, 0);
    ledger.noteClosed();
    EXPECT_EQ(calls, 1);
}

TEST(SocketLedger, waitsUntilNoneIsOpen)
{
    SocketLedger ledger;
    EXPECT_TRUE(ledger.waitUntilNoneIsOpen(0ms));
    ledger.noteOpened();
    EXPECT_EQ(ledger.openCount(), 1U);
    EXPECT_FALSE(ledger.waitUntilNoneIsOpen(10ms));
    std::thread closer([&ledger] { ledger.noteClosed(); });
    EXPECT_TRUE(ledger.waitUntilNoneIsOpen(20s));
    closer.join();
}

} // namespace quillbox
