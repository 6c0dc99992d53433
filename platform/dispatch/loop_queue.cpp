#include "platform/dispatch/loop_queue.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <typeinfo>

namespace quillbox {

namespace {

/// Longer than any real delay, but short enough that adding it to a time point cannot overflow.
constexpr std::chrono::milliseconds kLongestDelay = std::chrono::hours(24 * 365);

} // namespace

LoopQueue::LoopQueue(std::shared_ptr<EventLoop> loop, std::string label, QualityOfService qos)
    : loop_(std::move(loop)),
      id_(loop_->addQueue()),
      label_(std::move(label)),
      qualityOfService_(qos)
{
}

std::shared_ptr<LoopQueue> LoopQueue::from(std::shared_ptr<DispatchQueue> queue)
{
    const DispatchQueue& given = *queue;
    if (typeid(given) == typeid(LoopQueue))
        return std::static_pointer_cast<LoopQueue>(std::move(queue));
    std::cerr << "quillbox-helper: queue \"" << given.label() << "\" was not made by the pool\n";
    std::abort();
}

void LoopQueue::asyncAfter(std::chrono::milliseconds delay, Work work)
{
    const auto bounded = std::clamp(delay, std::chrono::milliseconds(0), kLongestDelay);
    loop_->addTimer(EventLoop::Clock::now() + bounded, id_, EventLoop::TimerWork(std::move(work)));
}

} // namespace quillbox
