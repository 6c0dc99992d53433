#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>

namespace quillbox {

class PoolContext;

/// The order of one serial queue on a `PoolContext`: an executor in the sense of Asio (of the
/// Networking Technical Specification, section 13.2.2), so that handlers of waits and timers can be
/// bound to it. Copies are the same strand.
///
/// Asio has such a class of its own. This one runs what is handed over from its own closures in the
/// same turn of the loop, where that one goes back to the kernel for news in between, which for a
/// small message costs as much as moving it.
///
/// The context outlives whatever uses the strand. All of it is thread-safe, `dispatch` included.
class Strand { // not final: Asio derives from executors to examine them
public:
    explicit Strand(PoolContext& context);

    template <typename Function, typename Allocator>
    void post(Function&& function, const Allocator& /*allocator*/) const
    {
        state_->post(Work(std::decay_t<Function>(std::forward<Function>(function))));
    }

    template <typename Function, typename Allocator>
    void defer(Function&& function, const Allocator& allocator) const
    {
        post(std::forward<Function>(function), allocator);
    }

    /// Runs the function inside the call where that keeps the order: on the strand itself, and on
    /// the loop's thread while the strand has nothing to do.
    template <typename Function, typename Allocator>
    void dispatch(Function&& function, const Allocator& allocator) const
    {
        if (isCurrent()) {
            std::decay_t<Function> local(std::forward<Function>(function));
            local();
        } else if (state_->begin()) {
            const auto held = state_;
            {
                std::decay_t<Function> local(std::forward<Function>(function));
                local();
            }
            held->drain();
        } else {
            post(std::forward<Function>(function), allocator);
        }
    }

    /// Whether the caller is run by this strand.
    bool isCurrent() const { return state_->isCurrent(); }

    PoolContext& context() const noexcept;

    // What is pending does not keep the loop from ending.
    void on_work_started() const noexcept {}
    void on_work_finished() const noexcept {}

    bool operator==(const Strand& other) const noexcept { return state_ == other.state_; }
    bool operator!=(const Strand& other) const noexcept { return state_ != other.state_; }

private:
    friend class PoolContext;

    /// A closure of any type, which need not be copyable. None when made without one.
    class Work {
    public:
        Work() = default;
        template <typename Function>
        explicit Work(Function function)
            : function_(new Function(std::move(function)),
                        [](void* made) { delete static_cast<Function*>(made); }),
              call_([](void* made) { (*static_cast<Function*>(made))(); })
        {
        }

        explicit operator bool() const { return call_ != nullptr; }
        void run() { call_(function_.get()); }

    private:
        std::unique_ptr<void, void (*)(void*)> function_{nullptr, [](void*) {}};
        void (*call_)(void*) = nullptr;
    };

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
