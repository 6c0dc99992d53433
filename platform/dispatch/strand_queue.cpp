#include "platform/dispatch/strand_queue.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <utility>

namespace quillbox {

namespace {

/// Longer than any real delay, but short enough that adding it to a time point cannot overflow.
constexpr std::chrono::milliseconds kLongestDelay = std::chrono::hours(24 * 365);

} // namespace

StrandQueue::StrandQueue(std::shared_ptr<PoolContext> context, std::string label,
                         QualityOfService qos)
    : context_(std::move(context)),
      strand_(context_->makeStrand()),
      label_(std::move(label)),
      qualityOfService_(qos)
{
}

void StrandQueue::async(Work work)
{
    if (context_->isShutDown())
        return;
    strand_.post(std::move(work));
}

void StrandQueue::asyncAfter(std::chrono::milliseconds delay, Work work)
{
    const auto bounded = std::clamp(delay, std::chrono::milliseconds(0), kLongestDelay);
    context_->setAlarm(PoolContext::Clock::now() + bounded, strand_,
                       quillbox::Work(std::move(work)));
}

const Strand& strandOf(const DispatchQueue& queue)
{
    const auto* strandQueue = dynamic_cast<const StrandQueue*>(&queue);
    if (strandQueue == nullptr) {
        std::cerr << "quillbox-helper: queue \"" << queue.label()
                  << "\" was not made by the pool\n";
        std::abort();
    }
    return strandQueue->strand();
}

} // namespace quillbox
