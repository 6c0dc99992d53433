#pragma once

#include "platform/dispatch_queue.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quillbox {

class FakeDispatch;

/// A queue that a test runs step by step. For use by one thread.
class FakeQueue final : public DispatchQueue {
public:
    FakeQueue(FakeDispatch& dispatch, std::string label, QualityOfService qos);

    void async(Work work) override;
    void asyncAfter(std::chrono::milliseconds delay, Work work) override;
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }
    QualityOfService qualityOfService() const override { return qualityOfService_; }

    /// Runs the first pending closure; false when there is none.
    bool runOne();

    /// Runs the closures that are pending now, but not those that they add.
    void runTurn();

    /// Runs until nothing is pending.
    void run();

    std::size_t pending() const;

    /// The state of a queue. The dispatch owns it too: pending closures outlive the queue.
    struct State {
        std::deque<Work> work;
        bool isRunning = false;
    };

private:
    FakeDispatch& dispatch_;
    const std::string label_;
    const QualityOfService qualityOfService_;
    const std::shared_ptr<State> state_;
};

/// Makes queues that a test runs step by step, and has a clock that a test advances. Must outlive
/// its queues.
class FakeDispatch final : public Dispatch {
public:
    FakeDispatch();
    ~FakeDispatch() override;

    FakeDispatch(const FakeDispatch&) = delete;
    FakeDispatch& operator=(const FakeDispatch&) = delete;

    std::shared_ptr<DispatchQueue> makeQueue(std::string label, QualityOfService qos) override;
    std::shared_ptr<DispatchQueue> mainQueue() override { return main_; }

    FakeQueue& main() { return *main_; }

    /// The queue with that index in the order of creation; null if its owner has released it.
    std::shared_ptr<FakeQueue> queue(std::size_t index) const;
    std::size_t queueCount() const { return queues_.size(); }

    /// Runs all queues until nothing is pending, including those that were released by their
    /// owners.
    void runAll();

    /// Advances the clock. Delayed closures are queued in the order of their due times, and all
    /// queues run after each.
    void advance(std::chrono::milliseconds duration);

    /// If set, called when a closure is added to a queue, with the queue's label.
    std::function<void(const std::string& label)> added;

    /// The clock: time since the start of the test.
    std::chrono::milliseconds now() const { return now_; }

private:
    friend class FakeQueue;

    struct Delayed {
        std::chrono::milliseconds due;
        std::shared_ptr<FakeQueue::State> state;
        DispatchQueue::Work work;
    };

    static bool runOne(const std::shared_ptr<FakeQueue::State>& state);

    std::vector<std::shared_ptr<FakeQueue::State>> states_;
    std::vector<std::weak_ptr<FakeQueue>> queues_;
    std::deque<Delayed> delayed_;
    std::chrono::milliseconds now_{0};
    std::shared_ptr<FakeQueue> main_;
};

} // namespace quillbox
