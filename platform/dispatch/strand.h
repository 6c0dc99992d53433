#pragma once

#include "platform/dispatch/closure.h"

#include <deque>
#include <memory>
#include <mutex>
#include <utility>

namespace quillbox {

class PoolContext;

/// The order of one serial queue on a `PoolContext`. Copies are the same strand. What is handed
/// over from its own closures runs in the same turn of the loop: to go back to the kernel for news
/// in between costs as much as moving a small message does.
///
/// The context outlives whatever uses the strand. All of it is thread-safe, `dispatch` included.
class Strand final {
public:
    explicit Strand(PoolContext& context);

    /// Runs the function once all that was handed over before has run; never inside the call.
    template <typename Function> void post(Function function) const
    {
        state_->post(Work(std::move(function)));
    }

    /// Runs the function inside the call where that keeps the order: on the strand itself, and on
    /// the loop's thread while the strand has nothing to do.
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

    /// Whether the caller is run by this strand.
    bool isCurrent() const { return state_->isCurrent(); }

private:
    friend class PoolContext;

    /// What the copies of one strand share.
    class State final : public std::enable_shared_from_this<State> {
    public:
        explicit State(PoolContext& poolContext) : context(poolContext) {}
        ~State();

        State(const State&) = delete;
        State& operator=(const State&) = delete;

        void post(Work work);

        /// Takes the loop's thread for a closure, with `drain` to follow. False when that is
        /// another thread, or one closure would overtake or interrupt another.
        bool begin();

        /// Runs what is pending, and leaves the rest of too much for a later turn.
        void drain();

        bool isCurrent() const;

        /// Destroys what is pending, and whatever is handed over from now on.
        void close();

        PoolContext& context;

    private:
        Work next();
        void drainLater();
        void takeTurn();

        std::mutex mutex_;
        std::deque<Work> pending_;
        bool isBusy_ = false; ///< a closure runs, or a turn of the loop is to come
        bool isClosed_ = false;
    };

    std::shared_ptr<State> state_;
};

} // namespace quillbox
