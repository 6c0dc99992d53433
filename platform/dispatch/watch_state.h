#pragma once

#include "platform/dispatch/closure.h"
#include "platform/dispatch/strand.h"

#include <cstdint>
#include <optional>
#include <system_error>
#include <utility>

namespace quillbox {

/// Somebody who waits for a descriptor. Called on the strand, with an error when the wait is
/// cancelled.
struct Waiter {
    Strand strand;
    Closure<std::error_code> handler;
};

/// What a `PoolContext` and a `Watch` know of a registered descriptor. Used on the loop's thread,
/// but for the beginning and the end, when nothing waits.
struct WatchState {
    explicit WatchState(std::uint64_t number) : id(number) {}

    const std::uint64_t id;
    std::optional<Waiter> reader;
    std::optional<Waiter> writer;
    std::optional<Waiter> failureWatcher;
    /// So many waits for reading are over at once: there was news while nobody waited, or news that
    /// takes more than one read.
    int readsDue = 0;
    bool hasFailed = false;
};

} // namespace quillbox
