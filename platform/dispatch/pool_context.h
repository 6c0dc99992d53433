#pragma once

#include "platform/dispatch/strand.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include <asio/io_context.hpp>

namespace quillbox {

/// An event loop of a `DispatchPool`, run by one thread. Everything that has an Asio object or a
/// strand of it holds it, so that it goes last.
class PoolContext final : public asio::io_context {
public:
    // Told that there is one thread, Asio wakes no other to wait in its place before it handles an
    // event. That wake-up would cost more than the handling.
    PoolContext() : asio::io_context(1) {}

    PoolContext(const PoolContext&) = delete;
    PoolContext& operator=(const PoolContext&) = delete;
    ~PoolContext() = default;

    /// Runs the loop on this thread until it is stopped.
    void runHere();

    /// Destroys every pending handler. Called once the thread no longer runs the loop; handlers
    /// that are handed over later are destroyed at once.
    void destroyPending();

    bool isShutDown() const { return isShutDown_.load(); }

    Strand makeStrand() { return Strand(*this); }

private:
    friend class Strand;

    void add(const std::shared_ptr<Strand::State>& state);
    void remove(const Strand::State* state);

    bool isThread() const { return thread_.load() == std::this_thread::get_id(); }
    bool isIdleThread() const { return isThread() && running_ == nullptr; }
    bool isRunning(const Strand::State* state) const { return isThread() && running_ == state; }
    void setRunning(const Strand::State* state) { running_ = state; }

    std::atomic<std::thread::id> thread_;    ///< the loop's, once it runs
    const Strand::State* running_ = nullptr; ///< used on that thread only
    std::atomic<bool> isShutDown_ = false;
    std::mutex mutex_;
    std::map<const Strand::State*, std::weak_ptr<Strand::State>> strands_;
};

} // namespace quillbox
