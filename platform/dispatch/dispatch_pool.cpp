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

    // Pending closures may hold their own queue, and so the context: it would never go by itself.
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
    // Only now: the closures of one loop may refer to what those of the other still use.
    for (Loop* loop : loops)
        loop->destroyPending();
}

} // namespace quillbox
