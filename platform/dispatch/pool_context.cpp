#include "platform/dispatch/pool_context.h"

#include <utility>
#include <vector>

namespace quillbox {

void PoolContext::runHere()
{
    thread_.store(std::this_thread::get_id());
    run();
}

void PoolContext::destroyPending()
{
    isShutDown_.store(true);
    shutdown();
    std::vector<std::shared_ptr<Strand::State>> open;
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [address, weak] : strands_) {
            if (auto state = weak.lock())
                open.push_back(std::move(state));
        }
    }
    for (const auto& state : open)
        state->close();
}

void PoolContext::add(const std::shared_ptr<Strand::State>& state)
{
    const std::lock_guard lock(mutex_);
    strands_.emplace(state.get(), state);
}

void PoolContext::remove(const Strand::State* state)
{
    const std::lock_guard lock(mutex_);
    strands_.erase(state);
}

} // namespace quillbox
