#include "tests/fakes/fake_dns_sd.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

/// Calls a function when it ends.
class EndingSubscription final : public DnsSd::Subscription {
public:
    explicit EndingSubscription(std::function<void()> whenEnded) : ended(std::move(whenEnded)) {}
    EndingSubscription(const EndingSubscription&) = delete;
    EndingSubscription& operator=(const EndingSubscription&) = delete;
    ~EndingSubscription() override { ended(); }

private:
    const std::function<void()> ended;
};

std::string requestText(const std::string& text)
{
    return text;
}

std::string requestText(const Endpoint& endpoint)
{
    return endpoint.description();
}

std::string requestText(const FakeDnsSd::ServiceAtPort& registered)
{
    return registered.service.name;
}

} // namespace

DnsSd::BrowseUpdate readyWith(const std::vector<Endpoint>& services)
{
    DnsSd::BrowseUpdate update{DnsSd::BrowseUpdate::State::Ready, {}, {}};
    for (const Endpoint& each : services)
        update.services.push_back(*each.service());
    return update;
}

DnsSd::ResolveUpdate found(std::vector<DnsSd::FoundAddress> addresses)
{
    return {.addresses = std::move(addresses), .isSettledIPv4 = true, .isSettledIPv6 = true};
}

void FakeDnsSd::State::note(const std::string& event)
{
    std::unique_lock lock(mutex);
    const auto call = observer;
    lock.unlock();
    if (call)
        call(event);
}

template <class Kind>
std::unique_ptr<DnsSd::Subscription> FakeDnsSd::start(const std::string& name, Kind operation)
{
    const auto text = requestText(operation.request);
    state_->note(name + ".start " + text);
    const auto ended = std::make_shared<std::atomic<bool>>(false);
    operation.ended = ended;
    {
        const std::lock_guard lock(state_->mutex);
        auto& operations = std::get<std::vector<Kind>>(state_->operations);
        const bool isRepeated = std::ranges::any_of(operations, [&](const Kind& each) {
            return !each.isEnded() && each.request == operation.request;
        });
        EXPECT_FALSE(isRepeated) << name << " of " << text;
        operations.push_back(std::move(operation));
        ++state_->count;
        ++state_->active;
        state_->changed.notify_all();
    }
    return std::make_unique<EndingSubscription>(
        [state = state_, ended, event = name + ".cancel " + text] {
            {
                const std::lock_guard lock(state->mutex);
                *ended = true;
                --state->active;
                state->changed.notify_all();
            }
            state->note(event);
        });
}

std::size_t FakeDnsSd::count() const
{
    const std::lock_guard lock(state_->mutex);
    return state_->count;
}

bool FakeDnsSd::waitForCount(std::size_t least, std::chrono::milliseconds limit) const
{
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, limit, [&] { return state_->count >= least; });
}

bool FakeDnsSd::waitForActive(std::size_t number, std::chrono::milliseconds limit) const
{
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, limit, [&] { return state_->active == number; });
}

void FakeDnsSd::answerAll(ResolveUpdate update)
{
    const std::lock_guard lock(state_->mutex);
    state_->answer = std::move(update);
}

void FakeDnsSd::observe(Observer observer)
{
    const std::lock_guard lock(state_->mutex);
    state_->observer = std::move(observer);
}

std::unique_ptr<DnsSd::Subscription>
FakeDnsSd::browse(std::string type, std::shared_ptr<DispatchQueue> queue,
                  std::function<void(const BrowseUpdate&)> handler)
{
    return start("browse", Browse{std::move(type), std::move(queue), std::move(handler)});
}

std::unique_ptr<DnsSd::Subscription>
FakeDnsSd::resolve(Endpoint endpoint, std::shared_ptr<DispatchQueue> queue,
                   std::function<void(const ResolveUpdate&)> handler)
{
    const Resolution resolution{std::move(endpoint), std::move(queue), std::move(handler)};
    auto subscription = start("resolution", resolution);
    std::unique_lock lock(state_->mutex);
    const auto answer = state_->answer;
    lock.unlock();
    if (answer)
        resolution.tell(*answer);
    return subscription;
}

std::unique_ptr<DnsSd::Subscription>
FakeDnsSd::registerService(ServiceRegistration service, std::uint16_t port,
                           std::shared_ptr<DispatchQueue> queue,
                           std::function<void(const RegistrationUpdate&)> handler)
{
    return start("registration",
                 Registration{{std::move(service), port}, std::move(queue), std::move(handler)});
}

std::unique_ptr<DnsSd::Subscription>
FakeDnsSd::findOwn(std::string name, std::string type, std::shared_ptr<DispatchQueue> queue,
                   std::function<void(const std::optional<OwnService>&)> handler)
{
    return start("ownQuery", OwnQuery{name + '.' + type, std::move(queue), std::move(handler)});
}

} // namespace quillbox
