#pragma once

#include "platform/dispatch/closure.h"
#include "platform/dispatch/strand.h"

#include <chrono>
#include <map>
#include <memory>
#include <utility>

namespace quillbox {

/// Work that a `PoolContext` posts to a strand at a set time.
struct Alarm {
    using Queue = std::multimap<std::chrono::steady_clock::time_point, std::shared_ptr<Alarm>>;

    Alarm(Strand where, Work what) : strand(std::move(where)), work(std::move(what)) {}

    const Strand strand;
    Work work; ///< empty once it has run or been cancelled
    bool isQueued = false;
    Queue::iterator position; ///< valid while `isQueued`
};

} // namespace quillbox
