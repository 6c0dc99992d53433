#include "tests/platform/tcp/scripted_dns_sd.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

DnsSd::ResolveUpdate found(std::vector<DnsSd::FoundAddress> addresses)
{
    return {.addresses = std::move(addresses),
            .isSettledIPv4 = true,
            .isSettledIPv6 = true,
            .error = {}};
}

struct ScriptedDnsSd::Shared {
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::vector<std::shared_ptr<Record>> records;
    std::optional<ResolveUpdate> answer;

    /// Calls the record's handler on its queue, unless the `Subscription` has ended by then.
    template <typename Handler, typename Update>
    static void post(const std::shared_ptr<Shared>& shared, const std::shared_ptr<Record>& record,
                     Handler Record::*handler, Update update)
    {
        record->queue->async([shared, record, handler, update = std::move(update)] {
            {
                const std::lock_guard lock(shared->mutex);
                if (record->isEnded)
                    return;
            }
            ((*record).*handler)(update);
        });
    }

    /// Requires `mutex`.
    std::size_t standing() const
    {
        return static_cast<std::size_t>(std::count_if(
            records.begin(), records.end(), [](const auto& record) { return !record->isEnded; }));
    }

    std::shared_ptr<Record> at(std::size_t index) const
    {
        const std::lock_guard lock(mutex);
        return records.at(index);
    }
};

class ScriptedDnsSd::HeldSubscription final : public DnsSd::Subscription {
public:
    HeldSubscription(std::shared_ptr<Shared> shared, std::shared_ptr<Record> record)
        : shared_(std::move(shared)), record_(std::move(record))
    {
    }

    ~HeldSubscription() override
    {
        const std::lock_guard lock(shared_->mutex);
        record_->isEnded = true;
        shared_->changed.notify_all();
    }

    HeldSubscription(const HeldSubscription&) = delete;
    HeldSubscription& operator=(const HeldSubscription&) = delete;

private:
    const std::shared_ptr<Shared> shared_;
    const std::shared_ptr<Record> record_;
};

std::shared_ptr<ScriptedDnsSd::Shared> ScriptedDnsSd::makeShared()
{
    return std::make_shared<Shared>();
}

std::unique_ptr<DnsSd::Subscription> ScriptedDnsSd::add(Record record)
{
    auto kept = std::make_shared<Record>(std::move(record));
    std::optional<ResolveUpdate> answer;
    {
        const std::lock_guard lock(shared_->mutex);
        if (kept->resolved && std::ranges::any_of(shared_->records, [&kept](const auto& other) {
                return !other->isEnded && other->resolved && other->endpoint == kept->endpoint;
            }))
            ADD_FAILURE() << "an active query is sent again";
        shared_->records.push_back(kept);
        if (kept->resolved)
            answer = shared_->answer;
        shared_->changed.notify_all();
    }
    if (answer)
        Shared::post(shared_, kept, &Record::resolved, *answer);
    return std::make_unique<HeldSubscription>(shared_, kept);
}

std::unique_ptr<DnsSd::Subscription>
ScriptedDnsSd::browse(std::string type, std::shared_ptr<DispatchQueue> queue,
                      std::function<void(const BrowseUpdate&)> handler)
{
    Record record;
    record.kind = Record::Kind::Browse;
    record.text = std::move(type);
    record.queue = std::move(queue);
    record.browsed = std::move(handler);
    return add(std::move(record));
}

std::unique_ptr<DnsSd::Subscription>
ScriptedDnsSd::resolve(Endpoint endpoint, std::shared_ptr<DispatchQueue> queue,
                       std::function<void(const ResolveUpdate&)> handler)
{
    Record record;
    record.kind = Record::Kind::Resolve;
    record.endpoint = std::move(endpoint);
    record.queue = std::move(queue);
    record.resolved = std::move(handler);
    return add(std::move(record));
}

std::unique_ptr<DnsSd::Subscription>
ScriptedDnsSd::registerService(ServiceRegistration service, std::uint16_t port,
                               std::shared_ptr<DispatchQueue> queue,
                               std::function<void(const RegistrationUpdate&)> handler)
{
    Record record;
    record.kind = Record::Kind::Register;
    record.registration = std::move(service);
    record.port = port;
    record.queue = std::move(queue);
    record.registered = std::move(handler);
    return add(std::move(record));
}

std::unique_ptr<DnsSd::Subscription>
ScriptedDnsSd::findOwn(std::string name, std::string /*type*/, std::shared_ptr<DispatchQueue> queue,
                       std::function<void(const std::optional<OwnService>&)> handler)
{
    Record record;
    record.kind = Record::Kind::FindOwn;
    record.text = std::move(name);
    record.queue = std::move(queue);
    record.foundOwn = std::move(handler);
    return add(std::move(record));
}

std::size_t ScriptedDnsSd::count() const
{
    const std::lock_guard lock(shared_->mutex);
    return shared_->records.size();
}

ScriptedDnsSd::Record ScriptedDnsSd::record(std::size_t index) const
{
    const std::lock_guard lock(shared_->mutex);
    return *shared_->records.at(index);
}

bool ScriptedDnsSd::waitForCount(std::size_t count, std::chrono::milliseconds limit) const
{
    std::unique_lock lock(shared_->mutex);
    return shared_->changed.wait_for(lock, limit, [&] { return shared_->records.size() >= count; });
}

std::size_t ScriptedDnsSd::standing() const
{
    const std::lock_guard lock(shared_->mutex);
    return shared_->standing();
}

bool ScriptedDnsSd::waitForStanding(std::size_t count, std::chrono::milliseconds limit) const
{
    std::unique_lock lock(shared_->mutex);
    return shared_->changed.wait_for(lock, limit, [&] { return shared_->standing() == count; });
}

void ScriptedDnsSd::deliver(std::size_t index, ResolveUpdate update)
{
    Shared::post(shared_, shared_->at(index), &Record::resolved, std::move(update));
}

void ScriptedDnsSd::deliver(std::size_t index, RegistrationUpdate update)
{
    Shared::post(shared_, shared_->at(index), &Record::registered, std::move(update));
}

void ScriptedDnsSd::answerAll(ResolveUpdate update)
{
    const std::lock_guard lock(shared_->mutex);
    shared_->answer = std::move(update);
}

} // namespace quillbox
