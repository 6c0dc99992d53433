#pragma once

#include <functional>
#include <memory>

namespace quillbox {

/// Turns the first SIGTERM, SIGINT or SIGHUP into a call of `requested` on the main thread. After
/// it a second SIGTERM or SIGINT ends the process at once, even when it is stuck; SIGHUP, which
/// session managers send right behind SIGTERM, no longer counts. A signal that the process was
/// started to ignore stays ignored.
///
/// There is one at a time. Destroying it gives the signals their default action back.
class TerminationSignals {
public:
    virtual ~TerminationSignals() = default;
};

/// On the main thread, once the application object exists. None when the system has no descriptor
/// to spare; the signals then keep their default action.
std::unique_ptr<TerminationSignals> makeTerminationSignals(std::function<void()> requested);

} // namespace quillbox
