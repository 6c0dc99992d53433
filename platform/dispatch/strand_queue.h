#pragma once

#include "platform/dispatch/dispatch_pool.h"
#include "platform/dispatch_queue.h"

#include <atomic>
#include <memory>
#include <string>

#include <asio/io_context.hpp>
#include <asio/strand.hpp>

/// What a queue of the pool is made of. For the backends below `platform/` that do input and output
/// on the pool, and for nobody else.
namespace quillbox {

using Strand = asio::strand<asio::io_context::executor_type>;

/// The event loop of a `DispatchPool`. Everything that has an Asio object or a strand of it holds
/// it, so that it goes last.
class PoolContext final : public asio::io_context {
public:
    static constexpr int kThreadCount = 2;

    PoolContext() : asio::io_context(kThreadCount) {}

    /// Destroys every pending handler. Called once no thread runs the context any more; handlers
    /// that are handed over later are destroyed at once.
    void destroyPending();

    bool isShutDown() const { return isShutDown_.load(); }

    Strand makeStrand() { return Strand(get_executor()); }

private:
    std::atomic<bool> isShutDown_ = false;
};

/// A serial queue on the pool.
class StrandQueue final : public DispatchQueue {
public:
    StrandQueue(std::shared_ptr<PoolContext> context, std::string label, QualityOfService qos);

    void async(Work work) override;
    void asyncAfter(std::chrono::milliseconds delay, Work work) override;
    bool isCurrent() const override { return strand_.running_in_this_thread(); }
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
