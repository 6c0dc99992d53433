#pragma once

#include "platform/dispatch/event_loop.h"
#include "platform/dispatch_queue.h"

#include <chrono>
#include <memory>
#include <string>
#include <utility>

namespace quillbox {

/// A serial queue on an event loop, as `DispatchPool` makes them. Only the backends below
/// `platform/` know this class.
class LoopQueue final : public DispatchQueue {
public:
    LoopQueue(std::shared_ptr<EventLoop> loop, std::string label, QualityOfService qos);

    /// The same queue. Aborts if no `DispatchPool` made it, which is a programming error.
    static std::shared_ptr<LoopQueue> from(std::shared_ptr<DispatchQueue> queue);

    /// Like `async`, for functions that cannot be copied as well.
    void post(EventLoop::Work work) const { loop_->post(id_, std::move(work)); }

    void async(Work work) override { post(std::move(work)); }
    void asyncAfter(std::chrono::milliseconds delay, Work work) override;
    bool isCurrent() const override { return loop_->isRunning(id_); }
    const std::string& label() const override { return label_; }
    QualityOfService qualityOfService() const override { return qualityOfService_; }

    EventLoop& loop() const { return *loop_; }
    EventLoop::QueueId id() const { return id_; }

private:
    const std::shared_ptr<EventLoop> loop_;
    const EventLoop::QueueId id_;
    const std::string label_;
    const QualityOfService qualityOfService_;
};

} // namespace quillbox
