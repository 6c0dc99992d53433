#include "platform/dnssd/processes/process_frame.h"

#include "platform/dnssd/engine/child_process.h"
#include "platform/dnssd/engine/message_codec.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <span>
#include <thread>
#include <utility>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quillbox::dnssd {

namespace {

/// Time limit, in seconds, for withdrawing all services when the process ends.
constexpr unsigned kLastSeconds = 1;

/// Returns a signalfd that becomes readable on SIGTERM.
int hardenProcess()
{
    ::close(kProgramOfChild);
    // Started by a descriptor, it would be listed under the number of that.
    ::prctl(PR_SET_NAME, "quillbox-dns-sd");

    // When the terminal interrupts both processes, the parent stops first and closes the socket,
    // which ends this one.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);

    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);

    // When the parent dies, the socket closes, which leaves time for goodbyes. The signal is for a
    // process that hangs.
    std::signal(SIGUSR1, [](int) { ::alarm(kLastSeconds); });
    ::prctl(PR_SET_PDEATHSIG, SIGUSR1);
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);

    // Any host on the network can make libavahi-core abort: no core files for that.
    const rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);

    return ::signalfd(-1, &endSignals, SFD_CLOEXEC | SFD_NONBLOCK);
}

} // namespace

ProcessFrame::ProcessFrame()
    : endSignal(hardenProcess()), loop(avahi_simple_poll_new(), &avahi_simple_poll_free)
{
    watch(kSocketOfChild, [](AvahiWatch*, int, AvahiWatchEvent, void* frame) {
        static_cast<ProcessFrame*>(frame)->receive();
    });
    if (endSignal >= 0)
        watch(endSignal, [](AvahiWatch*, int, AvahiWatchEvent, void* frame) {
            static_cast<ProcessFrame*>(frame)->isEnding = true;
        });
}

/// Calls `callback` in each iteration in which the descriptor is readable or broken.
void ProcessFrame::watch(int descriptor, AvahiWatchCallback callback)
{
    poll()->watch_new(poll(), descriptor, AVAHI_WATCH_IN, callback, this);
}

void ProcessFrame::comeUp(AvahiApi& api, const std::string& hostName)
{
    ++generation;
    isReportedDown = false;
    session.emplace(api, [this](const Event& event) { send(event); });
    send(EngineUp{hostName});
}

void ProcessFrame::goDown()
{
    session.reset();
    if (!std::exchange(isReportedDown, true))
        send(EngineDown{make_error_code(DnsSdError::EngineUnavailable)});
}

bool ProcessFrame::turn(std::optional<Clock::time_point> deadline)
{
    if (Clock::now() >= nextSign) {
        send(Alive{});
        nextSign = Clock::now() + kAliveInterval;
    }
    const auto ofSession = session ? session->nextDeadline() : std::nullopt;
    const auto until =
        std::min({nextSign, deadline.value_or(nextSign), ofSession.value_or(nextSign)});
    // Rounded up, or the loop would busy-wait through the last millisecond.
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    // If polling fails, as without memory, there is no event to wait for, and this must not be a
    // busy loop.
    if (avahi_simple_poll_iterate(loop.get(), static_cast<int>(std::max(wait.count(), 0L))) < 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (session)
        session->tidy(Clock::now());
    return !isEnding;
}

void ProcessFrame::end()
{
    ::alarm(kLastSeconds);
    session.reset();
}

void ProcessFrame::receive()
{
    std::array<std::uint8_t, kMaximumPacketLength> packet;
    const ssize_t length = ::recv(kSocketOfChild, packet.data(), packet.size(), MSG_DONTWAIT);
    if (length < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    const auto request =
        length > 0 ? decodeRequest(std::span(packet).first(static_cast<std::size_t>(length)))
                   : std::nullopt;
    if (!request) {
        isPeerFalse = length > 0;
        isEnding = true;
    } else if (session && request->generation == generation) {
        session->handle(request->content, Clock::now());
    }
}

/// Blocks while the socket is full; the parent never stops reading.
void ProcessFrame::send(const Event& event)
{
    const Packet packet = encode(generation, event);
    if (packet.empty() || isEnding)
        return;
    if (::send(kSocketOfChild, packet.data(), packet.size(), MSG_NOSIGNAL) < 0 && errno != EINTR)
        isEnding = true;
}

} // namespace quillbox::dnssd
