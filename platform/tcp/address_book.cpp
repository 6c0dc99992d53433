#include "platform/tcp/address_book.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace quillbox {

/// A subscriber to the updates of an entry.
class AddressBook::Reader final : public DnsSd::Ask, public std::enable_shared_from_this<Reader> {
public:
    Reader(std::shared_ptr<DispatchQueue> queue, Handler handler)
        : queue_(std::move(queue)), handler_(std::move(handler))
    {
    }

    void tell(const Known& known)
    {
        queue_->async([weak = weak_from_this(), known] {
            if (const auto self = weak.lock())
                self->handler_(*known);
        });
    }

private:
    const std::shared_ptr<DispatchQueue> queue_;
    const Handler handler_;
};

namespace {

std::string keyOf(const std::variant<ServiceEndpoint, std::string>& question)
{
    // Names contain no NUL, so different queries have different keys.
    if (const auto* service = std::get_if<ServiceEndpoint>(&question))
        return service->name + '\0' + service->type + '\0' + service->domain;
    return std::get<std::string>(question);
}

bool isSettled(const DnsSd::ResolveUpdate& update)
{
    return update.isSettledIPv4 && update.isSettledIPv6;
}

/// Unsubscribes the reader that it owns when it is destroyed.
class HeldAsk final : public DnsSd::Ask {
public:
    explicit HeldAsk(std::shared_ptr<DnsSd::Ask> held) : held_(std::move(held)) {}

private:
    const std::shared_ptr<DnsSd::Ask> held_;
};

} // namespace

struct AddressBook::Entry {
    Question question;
    std::unique_ptr<DnsSd::Ask> ask;
    std::uint64_t number = 0; ///< of `ask`; updates of earlier queries are ignored
    Clock::time_point askedAt;
    Clock::time_point usedAt;
    Known known; ///< null while there is nothing to report
    std::vector<std::weak_ptr<Reader>> readers;

    bool hasReaders() const
    {
        return std::ranges::any_of(readers, [](const auto& each) { return !each.expired(); });
    }
};

AddressBook::AddressBook(DnsSd& dnsSd, std::shared_ptr<DispatchQueue> queue,
                         std::chrono::milliseconds freshTime, std::chrono::milliseconds keepTime)
    : dnsSd_(dnsSd), queue_(std::move(queue)), freshTime_(freshTime), keepTime_(keepTime)
{
}

AddressBook::~AddressBook() = default;

std::unique_ptr<DnsSd::Ask> AddressBook::resolve(const ServiceEndpoint& service,
                                                 std::shared_ptr<DispatchQueue> queue,
                                                 Handler handler)
{
    return read(service, std::move(queue), std::move(handler));
}

std::unique_ptr<DnsSd::Ask> AddressBook::resolveHost(const std::string& hostName,
                                                     std::shared_ptr<DispatchQueue> queue,
                                                     Handler handler)
{
    return read(hostName, std::move(queue), std::move(handler));
}

std::unique_ptr<DnsSd::Ask> AddressBook::read(const Question& question,
                                              std::shared_ptr<DispatchQueue> queue, Handler handler)
{
    const auto key = keyOf(question);
    auto reader = std::make_shared<Reader>(std::move(queue), std::move(handler));
    const auto now = Clock::now();
    const std::lock_guard lock(mutex_);
    const auto [position, isNew] = entries_.try_emplace(key);
    Entry& entry = position->second;
    if (isNew) {
        entry.question = question;
        dropLater(key, keepTime_);
    }
    entry.usedAt = now;
    if (isNew || now - entry.askedAt >= freshTime_)
        ask(entry, key);
    if (entry.known)
        reader->tell(entry.known);
    std::erase_if(entry.readers, [](const auto& each) { return each.expired(); });
    entry.readers.push_back(reader);
    return std::make_unique<HeldAsk>(std::move(reader));
}

void AddressBook::ask(Entry& entry, const std::string& key)
{
    // Cached addresses may be dialled, but are marked as not settled: no connection should give up
    // before the network has had time to answer again.
    if (entry.known && entry.known->addresses.empty())
        entry.known.reset();
    if (entry.known) {
        auto known = std::make_shared<DnsSd::ResolveUpdate>();
        known->addresses = entry.known->addresses;
        known->hosts = entry.known->hosts;
        entry.known = std::move(known);
    }
    // Equal active queries are merged, so a new one is sent only after the old one has ended.
    entry.ask.reset();
    entry.askedAt = Clock::now();
    entry.number = ++lastNumber_;
    auto handler = [weak = weak_from_this(), key,
                    number = entry.number](const DnsSd::ResolveUpdate& update) {
        if (const auto self = weak.lock())
            self->take(key, number, update);
    };
    if (const auto* service = std::get_if<ServiceEndpoint>(&entry.question))
        entry.ask = dnsSd_.resolve(*service, queue_, std::move(handler));
    else
        entry.ask =
            dnsSd_.resolveHost(std::get<std::string>(entry.question), queue_, std::move(handler));
}

void AddressBook::take(const std::string& key, std::uint64_t number,
                       const DnsSd::ResolveUpdate& update)
{
    const std::lock_guard lock(mutex_);
    const auto position = entries_.find(key);
    if (position == entries_.end() || position->second.number != number)
        return;
    Entry& entry = position->second;
    const bool isEmpty = update.addresses.empty();
    if (isEmpty && !update.error && !isSettled(update))
        return; // no answer yet
    // While no engine is available, the last addresses stay valid, even those of an earlier query.
    auto known = std::make_shared<DnsSd::ResolveUpdate>(update);
    if (isEmpty && update.error && entry.known) {
        known->addresses = entry.known->addresses;
        known->hosts = entry.known->hosts;
    }
    entry.known = std::move(known);
    for (const auto& weak : entry.readers) {
        if (const auto reader = weak.lock())
            reader->tell(entry.known);
    }
}

void AddressBook::dropLater(const std::string& key, std::chrono::milliseconds pause)
{
    queue_->asyncAfter(pause, [weak = weak_from_this(), key] {
        if (const auto self = weak.lock())
            self->dropUnused(key);
    });
}

void AddressBook::dropUnused(const std::string& key)
{
    const std::lock_guard lock(mutex_);
    const auto position = entries_.find(key);
    if (position == entries_.end())
        return;
    const Entry& entry = position->second;
    const auto unused = std::chrono::ceil<std::chrono::milliseconds>(Clock::now() - entry.usedAt);
    if (!entry.hasReaders() && unused >= keepTime_)
        entries_.erase(position);
    else
        dropLater(key, std::max(keepTime_ - unused, keepTime_ / 2));
}

} // namespace quillbox
