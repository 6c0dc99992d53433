#include "platform/dispatch/dispatch_pool.h"

#include "platform/dispatch/strand_queue.h"

#include <array>
#include <thread>
#include <utility>

#include <asio/executor_work_guard.hpp>

namespace quillbox {

class DispatchPool::Threads final {
public:
    explicit Threads(PoolContext& context) : work_(context.get_executor())
    {
        for (auto& thread : threads_)
            thread = std::thread([&context] { context.run(); });
    }

    void join()
    {
        for (auto& thread : threads_)
            thread.join();
    }

private:
    const asio::executor_work_guard<PoolContext::executor_type> work_;
    std::array<std::thread, PoolContext::kThreadCount> threads_;
};

DispatchPool::DispatchPool()
    : context_(std::make_shared<PoolContext>()), threads_(std::make_unique<Threads>(*context_))
{
}

DispatchPool::~DispatchPool()
{
    shutdown();
}

std::shared_ptr<DispatchQueue> DispatchPool::makeQueue(std::string label, QualityOfService qos)
{
    return std::make_shared<StrandQueue>(context_, std::move(label), qos);
}

void DispatchPool::shutdown()
{
    if (!threads_)
        return;
    context_->stop();
    threads_->join();
    threads_.reset();
    // Pending closures may hold their own queue, and so the context: it would never go by itself.
    context_->destroyPending();
}

} // namespace quillbox
