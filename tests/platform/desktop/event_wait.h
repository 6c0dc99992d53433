#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

namespace quillbox {

/// Runs the event loop until the condition holds; false on timeout.
template <typename Condition> bool waitUntil(Condition condition, int milliseconds = 10'000)
{
    const QDeadlineTimer deadline(milliseconds);
    QTimer wakeUp;
    wakeUp.start(milliseconds);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

} // namespace quillbox
