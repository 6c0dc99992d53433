#include "platform/dial/address_race.h"

#include "platform/tcp/socket_calls.h"
#include "platform/values/socket_address.h"

#include <algorithm>
#include <utility>

#include <sys/socket.h>

namespace quillbox {

struct AddressRace::Entry {
    explicit Entry(Candidate wanted) : candidate(std::move(wanted)) {}

    Candidate candidate;
    DialPermission permission; ///< that of the latest attempt
    State state = State::Untried;
    bool wasQuick = false; ///< the permission was still current when the kernel chose the route
    bool isGone = false;   ///< no longer a candidate
    std::unique_ptr<FdWatcher> socket;
    std::error_code error;
};

namespace {

/// How old a permission may be when the kernel chooses the route. It takes a twentieth of this.
constexpr std::chrono::milliseconds kQuick{1};

/// Errors after which retrying is pointless: the host is reachable but refuses the connection, or
/// this computer is out of file descriptors or memory and waiting connections should release
/// theirs.
bool isFinal(const std::error_code& error)
{
    return error == std::errc::connection_refused || error == std::errc::connection_reset
           || error == std::errc::too_many_files_open
           || error == std::errc::too_many_files_open_in_system
           || error == std::errc::no_buffer_space || error == std::errc::not_enough_memory;
}

} // namespace

AddressRace::AddressRace(std::shared_ptr<DialContext> context, std::shared_ptr<LoopQueue> queue,
                         SocketAddress client, Handlers handlers)
    : context_(std::move(context)),
      queue_(std::move(queue)),
      client_(std::move(client)),
      timer_(queue_),
      handlers_(std::move(handlers))
{
}

AddressRace::~AddressRace()
{
    closeAll();
}

void AddressRace::setCandidates(std::vector<Candidate> candidates)
{
    for (const auto& entry : entries_)
        entry->isGone = true;
    entries_.reserve(candidates.size());
    for (auto& candidate : candidates) {
        const auto known = std::ranges::find_if(
            entries_, [&](const auto& entry) { return isSameWay(*entry, candidate); });
        if (known == entries_.end()) {
            entries_.push_back(std::make_shared<Entry>(std::move(candidate)));
            continue;
        }
        auto& entry = **known;
        entry.isGone = false;
        if (entry.state == State::Lost && entry.candidate != candidate)
            entry.state = State::Untried;
        entry.candidate = std::move(candidate);
    }
    std::erase_if(entries_,
                  [](const auto& entry) { return entry->isGone && entry->state != State::Trying; });
    advanceSoon();
}

/// Whether a candidate has the address of an entry, and would not be dialled in another way than in
/// the pending attempt: a record that arrives on another interface may lead to a better one.
bool AddressRace::isSameWay(const Entry& entry, const Candidate& candidate) const
{
    if (entry.candidate == candidate)
        return true;
    return entry.candidate.address == candidate.address
           && (entry.state != State::Trying || permissionFor(candidate) == entry.permission);
}

void AddressRace::restart()
{
    for (const auto& entry : entries_) {
        if (entry->state == State::Lost)
            entry->state = State::Untried;
    }
    advanceSoon();
}

void AddressRace::stop()
{
    isStopped_ = true;
    timer_.cancel();
    closeAll();
    handlers_ = {};
}

/// A pending attempt keeps its entry alive until its socket is closed. One that has connected by
/// now is reset, so that its local port is not kept in TIME-WAIT.
void AddressRace::closeAll()
{
    for (const auto& entry : entries_) {
        if (entry->socket)
            resetOnClose(entry->socket->descriptor());
        entry->socket.reset();
    }
    entries_.clear();
}

/// Calls `advance` asynchronously, so that no handler runs inside a call to this object.
void AddressRace::advanceSoon()
{
    if (isStopped_ || std::exchange(isAdvancing_, true))
        return;
    queue_->post([self = shared_from_this()] {
        self->isAdvancing_ = false;
        self->advance();
    });
}

void AddressRace::advance()
{
    while (!isStopped_ && !winner_ && mayTryAnother()) {
        const auto next = takeNext();
        if (!next)
            break;
        dial(next);
        if (next->state == State::Trying) {
            if (countOf(State::Untried) > 0)
                startNextLater();
            return;
        }
    }
    if (isStopped_)
        return;
    if (winner_) {
        auto won = handlers_.won.take();
        auto socket = std::move(winner_);
        stop();
        won(std::move(socket));
        return;
    }
    if (countOf(State::Trying) == 0)
        tellLost();
}

bool AddressRace::mayTryAnother() const
{
    const auto count = countOf(State::Trying);
    return count == 0 || (count < kMostAtOnce && context_->sockets->hasPlenty());
}

void AddressRace::startNextLater()
{
    timer_.start(kStagger, [weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->advance();
    });
}

/// The next untried entry: a proven address first, otherwise preferably of the other address family
/// than the previous one, beginning with IPv6.
std::shared_ptr<AddressRace::Entry> AddressRace::takeNext()
{
    const int preferred = lastFamily_ == AF_INET6 ? AF_INET : AF_INET6;
    std::shared_ptr<Entry> next;
    for (const auto& entry : entries_) {
        if (entry->state != State::Untried)
            continue;
        if (context_->provenAddresses.contains(entry->candidate.address)) {
            next = entry;
            break;
        }
        const bool isPreferred = familyOf(entry->candidate.address) == preferred;
        if (!next || (isPreferred && familyOf(next->candidate.address) != preferred))
            next = entry;
    }
    if (next)
        lastFamily_ = familyOf(next->candidate.address);
    return next;
}

/// That of `mayDial`. Nothing that DNS-SD found may be dialled if one of its addresses is that of
/// the client, as the others then belong to the client's host as well (see `TcpParameters`). A
/// client on this computer has an address that is never dialled, and makes no circle.
DialPermission AddressRace::permissionFor(const Candidate& candidate) const
{
    const auto permission = [this](const Candidate& each) {
        return mayDial(each, context_->ownPorts, context_->monitor);
    };
    const auto isOfClient = [&](const auto& entry) {
        return entry->candidate.isFromNetwork() && isSameHost(entry->candidate.address, client_)
               && permission(entry->candidate);
    };
    if (candidate.isFromNetwork() && std::ranges::any_of(entries_, isOfClient))
        return {.refusal = std::make_error_code(std::errc::connection_refused)};
    return permission(candidate);
}

void AddressRace::dial(const std::shared_ptr<Entry>& entry)
{
    const auto& address = entry->candidate.address;
    const auto begin = EventLoop::Clock::now();
    entry->permission = permissionFor(entry->candidate);
    if (!entry->permission) {
        settle(entry, entry->permission.refusal);
        return;
    }
    auto place = context_->sockets->open();
    if (!place) {
        settle(entry, std::make_error_code(std::errc::too_many_files_open));
        return;
    }
    std::error_code error;
    const int descriptor = openStreamSocket(familyOf(address), error);
    if (error) {
        settle(entry, error);
        return;
    }
    setConnectionOptions(descriptor);
    if (entry->permission.bindTo != 0)
        error = bindToInterface(descriptor, entry->permission.bindTo);
    if (!error)
        error = beginConnect(descriptor, address);
    entry->wasQuick = EventLoop::Clock::now() - begin < kQuick;
    // Registered only after connect(2), because epoll reports EPOLLHUP for an unconnected socket.
    std::error_code failure;
    entry->socket = FdWatcher::adopt(queue_, descriptor, FdWatcher::For::ReadingAndWriting, failure,
                                     std::move(place));
    if (failure)
        error = failure;
    if (error != std::errc::operation_in_progress) {
        settle(entry, error);
        return;
    }
    entry->state = State::Trying;
    entry->socket->waitWritable([weak = weak_from_this(), entry](const std::error_code& cancelled) {
        const auto self = weak.lock();
        if (!self || self->isStopped_ || cancelled)
            return;
        self->settle(entry, self->resultOf(*entry));
        self->advance();
    });
}

/// The result of an attempt that the kernel has finished.
std::error_code AddressRace::resultOf(const Entry& entry) const
{
    if (entry.socket->hasFailed())
        return takeSocketError(entry.socket->descriptor());
    // The kernel chose the route when it sent the first SYN, within connect(2), and chooses anew
    // for each repetition.
    if (entry.wasQuick && !hasRetransmitted(entry.socket->descriptor()))
        return {};
    // A route that came meanwhile, like that of a VPN, may have diverted it.
    const auto now = permissionFor(entry.candidate);
    if (now && now != entry.permission)
        return std::make_error_code(std::errc::address_not_available);
    return now.refusal;
}

/// Ends an attempt with a connection or an error.
void AddressRace::settle(const std::shared_ptr<Entry>& entry, std::error_code error)
{
    const auto& candidate = entry->candidate;
    // What was found on the network is no address of this computer (`mayDial`).
    if (!error && !candidate.isFromNetwork()
        && isSelfConnected(entry->socket->descriptor(), portOf(candidate.address)))
        error = std::make_error_code(std::errc::connection_refused);
    entry->state = State::Lost;
    if (!error) {
        winner_ = std::move(entry->socket);
        noteWinner(entry->candidate.address);
        return;
    }
    entry->error = error;
    lastError_ = error;
    context_->provenAddresses.remove(entry->candidate.address);
    entry->socket.reset();
    if (entry->isGone)
        std::erase(entries_, entry);
}

/// Also removes the addresses of pending attempts, which were slower than the winner.
void AddressRace::noteWinner(const SocketAddress& address)
{
    for (const auto& entry : entries_) {
        if (entry->state == State::Trying)
            context_->provenAddresses.remove(entry->candidate.address);
    }
    context_->provenAddresses.add(address);
}

std::size_t AddressRace::countOf(State state) const
{
    return static_cast<std::size_t>(std::ranges::count_if(
        entries_, [state](const auto& entry) { return entry->state == state; }));
}

void AddressRace::tellLost()
{
    Outcome outcome;
    if (!entries_.empty())
        outcome.error = lastError_;
    const auto final =
        std::ranges::find_if(entries_, [](const auto& entry) { return isFinal(entry->error); });
    if (final != entries_.end())
        outcome = {.error = (*final)->error, .isFinal = true};
    timer_.cancel();
    auto lost = handlers_.lost.take();
    lost(outcome);
    if (!isStopped_)
        handlers_.lost = std::move(lost);
}

} // namespace quillbox
