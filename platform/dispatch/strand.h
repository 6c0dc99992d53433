#pragma once

#include "platform/dispatch/closure.h"

#include <deque>
#include <memory>
#include <mutex>
#include <utility>

namespace quillbox {

class PoolContext;

/// The execution order of one serial queue on a `PoolContext`. Copies refer to the same strand.
/// Closures posted by its own closures run in the same turn of the loop: an epoll_wait in between
/// would cost as much as moving a small message.
///
/// The context must outlive all users of the strand. Thread-safe, including `dispatch`.
class Strand final {
public:
    explicit Strand(PoolContext& context);

    /// Runs the function after everything posted before; never inside the call.
    template <typename Function> void post(Function function) const
    {
        state_->post(Work(std::move(function)));
    }

    /// Runs the function inside the call where that keeps the order: on the strand itself, and on
    /// the loop's thread while no strand is running and this one has nothing pending. Otherwise
    /// posts it.
    template <typename Function> void dispatch(Function function) const
    {
        if (isCurrent()) {
            function();
        } else if (state_->begin()) {
            const auto held = state_;
            {
                // Destroyed on the strand, before the next one runs.
                Function local(std::move(function));
                local();
            }
            held->drain();
        } else {
            state_->post(Work(std::move(function)));
        }
    }

    /// Whether the caller runs on this strand.
    bool isCurrent() const { return state_->isCurrent(); }

private:
    friend class PoolContext;

    /// The state shared by the copies of a strand.
    class State final : public std::enable_shared_from_this<State> {
    public:
        explicit State(PoolContext& poolContext) : context(poolContext) {}
        ~State();

        State(const State&) = delete;
        State& operator=(const State&) = delete;

        void post(Work work);

        /// Claims the strand so that the caller can run a closure on the loop's thread and then
        /// call `drain`. False on any other thread, while a strand is running (the closure would
        /// interrupt it), or while this strand has closures pending (it would overtake them).
        bool begin();

        /// Runs pending closures up to the limits of one turn, and schedules another turn for the
        /// rest.
        void drain();

        bool isCurrent() const;

        /// Destroys pending closures, and from now on every closure that is posted.
        void close();

        PoolContext& context;

    private:
        Work next();
        void drainLater();
        void takeTurn();

        std::mutex mutex_;
        std::deque<Work> pending_;
        bool isBusy_ = false; ///< a closure is running, or a turn is scheduled
        bool isClosed_ = false;
    };

    std::shared_ptr<State> state_;
};

} // namespace quillbox
