#include "platform/dispatch/dispatch_pool.h"

#include "platform/dispatch/loop_queue.h"

#include <utility>

namespace quillbox {

DispatchPool::DispatchPool()
    : urgent_(std::make_shared<EventLoop>()),
      other_(std::make_shared<EventLoop>()),
      urgentThread_([loop = urgent_] { loop->run(); }),
      otherThread_([loop = other_] { loop->run(); })
{
}

DispatchPool::~DispatchPool()
{
    shutdown();
}

std::shared_ptr<DispatchQueue> DispatchPool::makeQueue(std::string label, QualityOfService qos)
{
    return std::make_shared<LoopQueue>(qos == QualityOfService::UserInitiated ? urgent_ : other_,
                                       std::move(label), qos);
}

void DispatchPool::shutdown()
{
    urgent_->stop();
    other_->stop();
    for (auto* thread : {&urgentThread_, &otherThread_}) {
        if (thread->joinable())
            thread->join();
    }
    // Only after both threads have ended: a closure of one loop may own objects that closures of
    // the other one use. Pending closures may hold their own queue, and with it the loop: a
    // reference cycle that only this breaks.
    urgent_->destroyPending();
    other_->destroyPending();
}

} // namespace quillbox
