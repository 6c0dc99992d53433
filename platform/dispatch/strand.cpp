#include "platform/dispatch/strand.h"

#include "platform/dispatch/pool_context.h"

namespace quillbox {

namespace {

/// How many closures of a strand run in one turn before other strands and the network get theirs.
constexpr int kMostInOneTurn = 64;

} // namespace

Strand::Strand(PoolContext& context) : state_(std::make_shared<State>(context))
{
    context.add(state_);
}

Strand::State::~State()
{
    context.remove(this);
}

void Strand::State::post(Work work)
{
    // Declared before the lock and so destroyed after unlocking: the destructor of work that is
    // posted after `close` may post more.
    Work dropped;
    const std::lock_guard lock(mutex_);
    if (isClosed_) {
        dropped = std::move(work);
        return;
    }
    pending_.push_back(std::move(work));
    if (!std::exchange(isBusy_, true))
        drainLater();
}

void Strand::State::drainLater()
{
    context.post(Work([self = shared_from_this()] { self->takeTurn(); }));
}

void Strand::State::takeTurn()
{
    context.setRunning(this);
    drain();
}

bool Strand::State::begin()
{
    if (!context.isIdleThread())
        return false;
    {
        const std::lock_guard lock(mutex_);
        if (isBusy_)
            return false;
        isBusy_ = true;
    }
    context.setRunning(this);
    return true;
}

void Strand::State::drain()
{
    for (int count = 0; count < kMostInOneTurn && !context.mustPause(); ++count) {
        Work work = next();
        if (!work) {
            context.setRunning(nullptr);
            return;
        }
        work();
    }
    context.setRunning(nullptr);
    drainLater();
}

Work Strand::State::next()
{
    const std::lock_guard lock(mutex_);
    if (pending_.empty()) {
        isBusy_ = false;
        return {};
    }
    Work work = std::move(pending_.front());
    pending_.pop_front();
    return work;
}

bool Strand::State::isCurrent() const
{
    return context.isRunning(this);
}

void Strand::State::close()
{
    std::deque<Work> dropped;
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
    dropped.swap(pending_);
}

} // namespace quillbox
