#include "platform/dial/port_check.h"

#include "platform/tcp/socket_calls.h"
#include "platform/values/socket_address.h"

#include <algorithm>

#include <poll.h>
#include <unistd.h>

namespace quillbox {

namespace {

using Clock = std::chrono::steady_clock;
using State = PortFacts::State;

State stateOf(const std::error_code& error)
{
    if (!error)
        return State::Open;
    if (error == std::errc::connection_refused || error == std::errc::connection_reset)
        return State::Refused;
    return error == std::errc::timed_out ? State::Silent : State::Unreachable;
}

/// Starts connecting. Returns the socket to wait for, or -1 if the state is already known.
int begin(const PortToCheck& port, State& state)
{
    std::error_code error;
    const int socket = openStreamSocket(familyOf(port.address), error);
    if (!error && port.bindTo != 0)
        error = bindToInterface(socket, port.bindTo);
    if (!error)
        error = beginConnect(socket, port.address);
    if (error == std::errc::operation_in_progress) {
        state = State::Silent;
        return socket;
    }
    state = stateOf(error);
    if (socket >= 0)
        ::close(socket);
    return -1;
}

} // namespace

std::vector<PortFacts::State> checkPorts(const std::vector<PortToCheck>& ports,
                                         std::chrono::milliseconds limit)
{
    const auto end = Clock::now() + limit;
    std::vector<State> states(ports.size(), State::Silent);
    std::vector<pollfd> waiting(ports.size());
    for (std::size_t i = 0; i < ports.size(); ++i)
        waiting[i] = {begin(ports[i], states[i]), POLLOUT, 0};
    const auto isOpen = [](const pollfd& each) { return each.fd >= 0; };
    while (std::any_of(waiting.begin(), waiting.end(), isOpen)) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0 || ::poll(waiting.data(), waiting.size(), static_cast<int>(left)) <= 0)
            break;
        for (std::size_t i = 0; i < waiting.size(); ++i) {
            if (waiting[i].fd < 0 || waiting[i].revents == 0)
                continue;
            states[i] = stateOf(takeSocketError(waiting[i].fd));
            ::close(waiting[i].fd);
            waiting[i].fd = -1;
        }
    }
    for (const pollfd& each : waiting) {
        if (each.fd >= 0)
            ::close(each.fd);
    }
    return states;
}

} // namespace quillbox
