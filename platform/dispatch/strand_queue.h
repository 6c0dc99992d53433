#pragma once

#include "platform/dispatch/dispatch_pool.h"
#include "platform/dispatch/pool_context.h"
#include "platform/dispatch/strand.h"
#include "platform/dispatch_queue.h"

#include <memory>
#include <string>

/// What a queue of the pool is made of. For the backends below `platform/` that do input and output
/// on the pool, and for nobody else.
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

/// The strand of a queue that `DispatchPool` made. A queue of any other make is an error of the
/// program, which ends here.
const Strand& strandOf(const DispatchQueue& queue);

} // namespace quillbox
