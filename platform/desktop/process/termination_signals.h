#pragma once

#include <QObject>
#include <functional>
#include <memory>

namespace quillbox {

/// Turns the first SIGTERM, SIGINT or SIGHUP into a call of `requested` on the main thread, until
/// the result is destroyed. After that call, a second SIGTERM or SIGINT kills the process at once,
/// even if it is stuck, and SIGHUP, which session managers send right after SIGTERM, is ignored. No
/// handler is installed for a signal that the process was started to ignore.
///
/// At most one result exists at a time. Its destructor restores the default actions of signals that
/// are not ignored. On the main thread, after the application object has been constructed. Null if
/// no pipe can be created; the signals then keep their default actions.
std::unique_ptr<QObject> makeTerminationSignals(std::function<void()> requested);

} // namespace quillbox
