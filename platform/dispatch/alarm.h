#pragma once

#include "platform/dispatch/closure.h"
#include "platform/dispatch/strand.h"

#include <chrono>
#include <map>
#include <memory>
#include <utility>

namespace quillbox {

/// Work that a `PoolContext` puts on a strand when its time has come.
struct Alarm {
    using Queue = std::multimap<std::chrono::steady_clock::time_point, std::shared_ptr<Alarm>>;

    Alarm(Strand where, Work what) : strand(std::move(where)), work(std::move(what)) {}

    const Strand strand;
    Work work; ///< none once it runs or is cancelled
    bool isQueued = false;
    Queue::iterator position; ///< while it is queued
};

} // namespace quillbox
