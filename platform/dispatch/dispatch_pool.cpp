#include "platform/dispatch/dispatch_pool.h"

#include "platform/dispatch/strand_queue.h"

#include <thread>
#include <utility>

namespace quillbox {

class DispatchPool::Loop final {
public:
    Loop() : thread_([this] { context_->runHere(); }) {}

    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;
    ~Loop() = default;

    const std::shared_ptr<PoolContext>& context() const { return context_; }

    void stop() { context_->stop(); }

    void join()
    {
        if (thread_.joinable())
            thread_.join();
    }

    // Pending closures may hold their own queue, and with it the context: a reference cycle that
    // only this breaks.
    void destroyPending() { context_->destroyPending(); }

private:
    const std::shared_ptr<PoolContext> context_ = std::make_shared<PoolContext>();
    std::thread thread_;
};

DispatchPool::DispatchPool() : urgent_(std::make_unique<Loop>()), other_(std::make_unique<Loop>())
{
}

DispatchPool::~DispatchPool()
{
    shutdown();
}

std::shared_ptr<DispatchQueue> DispatchPool::makeQueue(std::string label, QualityOfService qos)
{
    return std::make_shared<StrandQueue>(context(qos), std::move(label), qos);
}

const std::shared_ptr<PoolContext>& DispatchPool::context(QualityOfService qos) const
{
    return (qos == QualityOfService::UserInitiated ? urgent_ : other_)->context();
}

void DispatchPool::shutdown()
{
    const auto loops = {urgent_.get(), other_.get()};
    for (Loop* loop : loops)
        loop->stop();
    for (Loop* loop : loops)
        loop->join();
    // Only after both threads have ended: a closure of one loop may own objects that closures of
    // the other one use.
    for (Loop* loop : loops)
        loop->destroyPending();
}

} // namespace quillbox
