#pragma once

#include "platform/dispatch/closure.h"
#include "platform/dispatch/strand.h"

#include <cstdint>
#include <optional>
#include <system_error>
#include <utility>

namespace quillbox {

/// A pending wait for a file descriptor. The handler runs on the strand, with an error when the
/// wait is cancelled.
struct Waiter {
    Strand strand;
    Closure<std::error_code> handler;
};

/// The state of a registered file descriptor, shared by a `PoolContext` and a `Watch`. Used on the
/// loop's thread, except at creation and destruction, when no wait is pending.
struct WatchState {
    explicit WatchState(std::uint64_t number) : id(number) {}

    const std::uint64_t id;
    std::optional<Waiter> reader;
    std::optional<Waiter> writer;
    std::optional<Waiter> failureWatcher;
    /// How many waits for reading complete immediately: an event arrived while nobody was waiting,
    /// or it takes more than one read.
    int readsDue = 0;
    bool hasFailed = false;
};

} // namespace quillbox
