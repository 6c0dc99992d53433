#include "tests/fakes/fake_dispatch.h"

#include <algorithm>
#include <utility>

namespace quillbox {

FakeQueue::FakeQueue(FakeDispatch& dispatch, std::string label, QualityOfService qos)
    : dispatch_(dispatch),
      label_(std::move(label)),
      qualityOfService_(qos),
      state_(std::make_shared<State>())
{
    dispatch_.states_.push_back(state_);
}

void FakeQueue::async(Work work)
{
    if (dispatch_.added)
        dispatch_.added(label_);
    state_->work.push_back(std::move(work));
}

void FakeQueue::asyncAfter(std::chrono::milliseconds delay, Work work)
{
    const auto due = dispatch_.now_ + std::max(delay, std::chrono::milliseconds(0));
    auto& delayed = dispatch_.delayed_;
    const auto position = std::upper_bound(
        delayed.begin(), delayed.end(), due,
        [](std::chrono::milliseconds time, const auto& entry) { return time < entry.due; });
    delayed.insert(position, {due, state_, std::move(work)});
}

bool FakeQueue::isCurrent() const
{
    return state_->isRunning;
}

bool FakeQueue::runOne()
{
    return FakeDispatch::runOne(state_);
}

void FakeQueue::runTurn()
{
    for (std::size_t count = state_->work.size(); count > 0; --count)
        runOne();
}

void FakeQueue::run()
{
    while (runOne()) {
    }
}

std::size_t FakeQueue::pending() const
{
    return state_->work.size();
}

FakeDispatch::FakeDispatch()
    : main_(std::make_shared<FakeQueue>(*this, "main", QualityOfService::Unspecified))
{
}

FakeDispatch::~FakeDispatch()
{
    // Destroys pending closures without running them, including those that own their own queue.
    for (const auto& state : states_)
        std::exchange(state->work, {}).clear();
    std::exchange(delayed_, {}).clear();
}

std::shared_ptr<DispatchQueue> FakeDispatch::makeQueue(std::string label, QualityOfService qos)
{
    auto queue = std::make_shared<FakeQueue>(*this, std::move(label), qos);
    queues_.push_back(queue);
    return queue;
}

std::shared_ptr<FakeQueue> FakeDispatch::queue(std::size_t index) const
{
    return queues_.at(index).lock();
}

bool FakeDispatch::runOne(const std::shared_ptr<FakeQueue::State>& state)
{
    if (state->work.empty())
        return false;
    auto work = std::move(state->work.front());
    state->work.pop_front();
    state->isRunning = true;
    work();
    work = nullptr;
    state->isRunning = false;
    return true;
}

void FakeDispatch::runAll()
{
    bool ran = true;
    while (ran) {
        ran = false;
        // A copy, as the closures may make queues.
        const auto states = states_;
        for (const auto& state : states) {
            while (runOne(state))
                ran = true;
        }
    }
}

void FakeDispatch::advance(std::chrono::milliseconds duration)
{
    const auto end = now_ + duration;
    runAll();
    while (!delayed_.empty() && delayed_.front().due <= end) {
        auto next = std::move(delayed_.front());
        delayed_.pop_front();
        now_ = std::max(now_, next.due);
        next.state->work.push_back(std::move(next.work));
        runAll();
    }
    now_ = end;
}

} // namespace quillbox
