#pragma once

#include "platform/dispatch/dispatch_pool.h"
#include "platform/dispatch/loop_queue.h"
#include "platform/tcp/tcp_context.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <functional>
#include <future>
#include <memory>

#include <gtest/gtest.h>

namespace quillbox {

/// For tests of the classes behind `TcpNetwork`, which show what it hides: a context of their own,
/// and a queue to use them on. Pending work is dropped at the end.
class Backstage : public testing::Test {
protected:
    Backstage()
    {
        InterfaceAddress loopback;
        loopback.interfaceIndex = 1;
        loopback.interfaceName = "lo";
        loopback.isLoopback = true;
        loopback.address = {};
        monitor.setAddresses({loopback});
    }

    ~Backstage() override { pool.shutdown(); }

    /// Runs `work` on the queue and waits for it.
    void onQueue(const std::function<void()>& work)
    {
        std::promise<void> done;
        queue->async([&] {
            work();
            done.set_value();
        });
        done.get_future().wait();
    }

    /// Waits until the queue has run all pending work, and the work which that submits.
    void settle()
    {
        for (int turn = 0; turn < 3; ++turn)
            onQueue([] {});
    }

    DispatchPool pool;
    ScriptedDnsSd dnsSd;
    ScriptedMonitor monitor;
    const std::shared_ptr<DispatchQueue> queue =
        pool.makeQueue("backstage", QualityOfService::UserInitiated);
    const std::shared_ptr<TcpContext> context{
        new TcpContext{.dnsSd = dnsSd,
                       .monitor = monitor,
                       .resolutions = std::make_shared<ResolveCache>(
                           dnsSd, pool.makeQueue("addresses", QualityOfService::UserInitiated)),
                       .chunks = std::make_shared<ChunkPool>(),
                       .pipes = std::make_shared<PipePool>(),
                       .sockets = std::make_shared<SocketLedger>(SocketLedger::defaultMost()),
                       .hosts = std::make_shared<HostLookup>(),
                       .reach = Reach::Network,
                       .ownPorts = {},
                       .provenAddresses = {},
                       .traffic = {}}};
};

} // namespace quillbox
