#pragma once

#include "platform/dispatch/loop_queue.h"

#include <cassert>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

namespace quillbox {

/// What connections and listeners have in common: states, and a life on the queue that they are
/// started on. `Derived` implements `open`, which is called on the queue unless the object was
/// cancelled before, and `close`, which may be called several times.
template <typename Derived, typename Interface>
class QueueObject : public Interface, public std::enable_shared_from_this<Derived> {
public:
    using State = typename Interface::State;

    /// Returns the owner's reference. When the last copy is dropped, the object is cancelled,
    /// without a report; pending work, which has references of its own, keeps it alive until then.
    template <typename... Arguments>
    static std::shared_ptr<Interface> make(Arguments&&... arguments)
    {
        auto object = std::make_shared<Derived>(std::forward<Arguments>(arguments)...);
        Interface* const interface = object.get();
        // Weak references keep the deleter, so it gives up its own reference.
        return {interface, [object = std::move(object)](Interface*) mutable {
                    const auto abandoned = std::move(object);
                    abandoned->abandon();
                }};
    }

    void setStateUpdateHandler(typename Interface::StateUpdateHandler handler) final
    {
        stateHandler_ = std::move(handler);
    }

    void start(std::shared_ptr<DispatchQueue> queue) final
    {
        assert(queue_ == nullptr);
        queue_ = LoopQueue::from(std::move(queue));
        if (isCancelled_)
            reportCancelled();
        else
            derived().open();
    }

    void cancel() final
    {
        if (std::exchange(isCancelled_, true))
            return;
        derived().close();
        if (queue_)
            reportCancelled();
    }

protected:
    QueueObject() = default;

    /// Null before `start`.
    const std::shared_ptr<LoopQueue>& queue() const { return queue_; }

    bool isCancelled() const { return isCancelled_; }

    /// Reports a state if it or its error has changed.
    void report(State state, std::error_code error)
    {
        const auto report = std::pair(state, error);
        if (std::exchange(lastReport_, report) == report)
            return;
        queue_->post([self = this->shared_from_this(), state, error] {
            if (self->stateHandler_)
                self->stateHandler_(state, error);
        });
    }

private:
    Derived& derived() { return static_cast<Derived&>(*this); }

    void reportCancelled()
    {
        queue_->post([self = this->shared_from_this()] {
            if (const auto handler = std::exchange(self->stateHandler_, nullptr))
                handler(State::Cancelled, {});
        });
    }

    /// Called on any thread.
    void abandon()
    {
        if (!queue_) {
            derived().close();
            return;
        }
        queue_->post([self = this->shared_from_this()] {
            self->stateHandler_ = nullptr;
            self->isCancelled_ = true;
            self->close();
        });
    }

    std::shared_ptr<LoopQueue> queue_;
    typename Interface::StateUpdateHandler stateHandler_;
    std::optional<std::pair<State, std::error_code>> lastReport_;
    bool isCancelled_ = false;
};

} // namespace quillbox
