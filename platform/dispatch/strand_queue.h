#pragma once

#include "platform/dispatch/dispatch_pool.h"
#include "platform/dispatch/pool_context.h"
#include "platform/dispatch/strand.h"
#include "platform/dispatch_queue.h"

#include <memory>
#include <string>

/// How the pool implements queues. Only for the backends below `platform/` that do I/O on the pool.
namespace quillbox {

/// A serial queue on the pool.
class StrandQueue final : public DispatchQueue {
public:
    StrandQueue(std::shared_ptr<PoolContext> context, std::string label, QualityOfService qos);

    void async(Work work) override;
    void asyncAfter(std::chrono::milliseconds delay, Work work) override;
    bool isCurrent() const override { return strand_.isCurrent(); }
    const std::string& label() const override { return label_; }
    QualityOfService qualityOfService() const override { return qualityOfService_; }

    const Strand& strand() const { return strand_; }

private:
    const std::shared_ptr<PoolContext> context_;
    const Strand strand_;
    const std::string label_;
    const QualityOfService qualityOfService_;
};

/// The strand of a queue that was made by `DispatchPool`. Aborts for any other queue, which is a
/// programming error.
const Strand& strandOf(const DispatchQueue& queue);

} // namespace quillbox
