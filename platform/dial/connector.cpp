#include "platform/dial/connector.h"

#include "platform/values/socket_address.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

namespace quillbox {

namespace {

/// How long a refused connection waits for addresses of the other family: a host without it does
/// not always say so, and then its addresses are settled only after seconds.
constexpr std::chrono::milliseconds kOtherFamilyLimit{500};

/// The name without a trailing dot if it is resolved by multicast DNS (RFC 6762, section 3).
std::optional<std::string> multicastName(const std::string& host)
{
    constexpr std::string_view kSuffix = ".local";
    std::string name = host;
    if (!name.empty() && name.back() == '.')
        name.pop_back();
    if (name.size() <= kSuffix.size())
        return std::nullopt;
    const bool isLocal =
        std::equal(kSuffix.rbegin(), kSuffix.rend(), name.rbegin(), [](char wanted, char given) {
            return std::tolower(static_cast<unsigned char>(given)) == wanted;
        });
    return isLocal ? std::optional(name) : std::nullopt;
}

} // namespace

Connector::Connector(std::shared_ptr<DialContext> context, Endpoint endpoint, SocketAddress client)
    : context_(std::move(context)), endpoint_(std::move(endpoint)), client_(std::move(client))
{
}

void Connector::start(std::shared_ptr<LoopQueue> queue, Handlers handlers)
{
    queue_ = std::move(queue);
    handlers_ = std::move(handlers);
    timer_.emplace(queue_);
    race_ = std::make_shared<AddressRace>(
        context_, queue_, client_,
        AddressRace::Handlers{.won =
                                  [weak = weak_from_this()](std::unique_ptr<FdWatcher> socket) {
                                      const auto self = weak.lock();
                                      if (!self || !self->race_)
                                          return;
                                      auto connected = self->handlers_.connected.take();
                                      self->stop();
                                      connected(std::move(socket));
                                  },
                              .lost =
                                  [weak = weak_from_this()](const AddressRace::Outcome& outcome) {
                                      if (const auto self = weak.lock())
                                          self->lose(outcome);
                                  }});
    findAddresses();
}

void Connector::stop()
{
    if (!race_)
        return;
    timer_->cancel();
    ask_.reset();
    networkChanges_.reset();
    std::exchange(race_, nullptr)->stop();
    handlers_ = {};
}

void Connector::findAddresses()
{
    const auto* host = endpoint_.host();
    if (host == nullptr || multicastName(host->host)) {
        resolveByDnsSd();
        return;
    }
    if (const auto address = parseNumericHost(host->host, host->port)) {
        isSettled_ = true;
        setCandidates({{.address = *address, .interfaces = {}}});
        return;
    }
    lookUp(*host);
}

void Connector::resolveByDnsSd()
{
    auto handler = [weak = weak_from_this()](const DnsSd::ResolveUpdate& update) {
        const auto self = weak.lock();
        if (self && self->race_)
            self->takeResolved(update);
    };
    const auto* host = endpoint_.host();
    // The port of a host is not part of the question.
    ask_ = context_->resolutions->resolve(
        host != nullptr ? HostEndpoint{.host = *multicastName(host->host)} : endpoint_, queue_,
        std::move(handler));
}

void Connector::lookUp(const HostEndpoint& host)
{
    if (std::exchange(isLookingUp_, true))
        return;
    context_->hosts->lookUp(host.host,
                            [weak = weak_from_this()](const std::vector<SocketAddress>& addresses,
                                                      std::error_code error) {
                                const auto self = weak.lock();
                                if (!self)
                                    return;
                                self->queue_->post([weak, addresses, error] {
                                    const auto connector = weak.lock();
                                    if (connector && connector->race_)
                                        connector->takeLookedUp(addresses, error);
                                });
                            });
}

void Connector::takeLookedUp(const std::vector<SocketAddress>& addresses, std::error_code error)
{
    isLookingUp_ = false;
    isSettled_ = true;
    sourceError_ = error;
    std::vector<Candidate> candidates;
    for (const auto& address : addresses)
        candidates.push_back(
            {.address = withPort(address, endpoint_.host()->port), .interfaces = {}});
    setCandidates(std::move(candidates));
    race_->restart();
}

void Connector::takeResolved(const DnsSd::ResolveUpdate& update)
{
    // Without an engine no answer can come; another update follows when one is available.
    isSettled_ = update.error || (update.isSettledIPv4 && update.isSettledIPv6);
    isPartlySettled_ = update.isSettledIPv4 || update.isSettledIPv6;
    timer_->cancel();
    sourceError_ = update.error;
    std::vector<Candidate> candidates;
    const auto* host = endpoint_.host();
    for (const auto& found : update.addresses)
        addCandidate(candidates,
                     host != nullptr ? withPort(found.address, host->port) : found.address,
                     found.interfaceIndex);
    setCandidates(std::move(candidates));
    if (waitingError_) {
        pause_ = kFirstPause;
        race_->restart();
    }
}

void Connector::setCandidates(std::vector<Candidate> candidates)
{
    hasCandidates_ = !candidates.empty();
    race_->setCandidates(std::move(candidates));
}

void Connector::lose(const AddressRace::Outcome& outcome)
{
    if (!race_ || isLookingUp_)
        return;
    // More addresses may follow; their update starts the race again.
    if (!isSettled_) {
        if (outcome.isFinal && isPartlySettled_)
            timer_->start(kOtherFamilyLimit, [weak = weak_from_this(), error = outcome.error] {
                const auto self = weak.lock();
                if (self && self->race_)
                    self->fail(error);
            });
        return;
    }
    if (outcome.isFinal) {
        fail(outcome.error);
        return;
    }
    if (outcome.error)
        wait(outcome.error);
    else
        wait(sourceError_ ? sourceError_ : hostNotFound());
}

void Connector::fail(std::error_code error)
{
    auto failed = handlers_.failed.take();
    stop();
    failed(error);
}

void Connector::wait(std::error_code error)
{
    watchNetwork();
    // An active DNS-SD query without addresses needs no retry: it reports them once they are known.
    if (hasCandidates_ || !ask_) {
        timer_->start(pause_, [weak = weak_from_this()] {
            const auto self = weak.lock();
            if (self && self->race_)
                self->retry();
        });
        pause_ = std::min<std::chrono::milliseconds>(pause_ * 2, kLongestPause);
    }
    if (std::exchange(waitingError_, error) == error)
        return;
    auto waiting = handlers_.waiting.take();
    waiting(error);
    if (race_)
        handlers_.waiting = std::move(waiting);
}

/// Subscribes only when the connection has to wait: most connect at once and do not need it.
void Connector::watchNetwork()
{
    if (networkChanges_)
        return;
    networkChanges_ = context_->monitor.subscribe(queue_, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self || !self->race_)
            return;
        self->pause_ = kFirstPause;
        self->retry();
    });
}

void Connector::retry()
{
    timer_->cancel();
    const auto* host = endpoint_.host();
    const bool isLookedUp = host != nullptr && !ask_ && !parseNumericHost(host->host, host->port);
    if (isLookedUp)
        lookUp(*host);
    else
        race_->restart();
}

} // namespace quillbox
