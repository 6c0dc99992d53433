#pragma once

#include "platform/dial/dial_context.h"
#include "platform/dispatch/dispatch_pool.h"
#include "platform/dispatch/loop_queue.h"
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
    FakeDnsSd dnsSd;
    ScriptedMonitor monitor;
    const std::shared_ptr<DispatchQueue> queue =
        pool.makeQueue("backstage", QualityOfService::UserInitiated);
    const std::shared_ptr<DialContext> context =
        std::make_shared<DialContext>(dnsSd, monitor, Reach::Network,
                                      pool.makeQueue("resolving", QualityOfService::UserInitiated));
};

} // namespace quillbox
