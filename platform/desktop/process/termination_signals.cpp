#include "platform/desktop/process/termination_signals.h"

#include "platform/posix/file_descriptor.h"

#include <QSocketNotifier>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace quillbox {

namespace {

constexpr std::array<int, 3> kSignals{SIGTERM, SIGINT, SIGHUP};

/// The write end of the pipe, global because a signal handler has no arguments for it. A signalfd
/// would need no handler, but needs the signals blocked, and every program that is started from
/// here would inherit the blocked signals.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic<int> handlerDescriptor = -1;
static_assert(std::atomic<int>::is_always_lock_free);

void handleSignal(int /*signal*/)
{
    const int error = errno;
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGHUP, &action, nullptr);
    const char byte = 0;
    [[maybe_unused]] const auto written = ::write(handlerDescriptor.load(), &byte, 1);
    errno = error;
}

void setAction(int signal, void (*handler)(int))
{
    struct sigaction before {};
    if (::sigaction(signal, nullptr, &before) != 0 || before.sa_handler == SIG_IGN)
        return;
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigaction(signal, &action, nullptr);
}

class SelfPipe final : public QObject {
public:
    SelfPipe(std::array<int, 2> ends, std::function<void()> whenRequested)
        : reading(ends[0]),
          writing(ends[1]),
          requested(std::move(whenRequested)),
          notifier(reading.get(), QSocketNotifier::Read)
    {
        connect(&notifier, &QSocketNotifier::activated, this, [this] {
            notifier.setEnabled(false);
            requested();
        });
        handlerDescriptor.store(writing.get());
        for (const int signal : kSignals)
            setAction(signal, handleSignal);
    }

    ~SelfPipe() override
    {
        for (const int signal : kSignals)
            setAction(signal, SIG_DFL);
        handlerDescriptor.store(-1);
    }

    SelfPipe(const SelfPipe&) = delete;
    SelfPipe& operator=(const SelfPipe&) = delete;

private:
    const FileDescriptor reading;
    const FileDescriptor writing;
    const std::function<void()> requested;
    QSocketNotifier notifier;
};

} // namespace

std::unique_ptr<QObject> makeTerminationSignals(std::function<void()> requested)
{
    std::array<int, 2> ends{-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return nullptr;
    return std::make_unique<SelfPipe>(ends, std::move(requested));
}

} // namespace quillbox
