#include "tests/fakes/fake_dns_sd.h"

#include <utility>

namespace quillbox {

namespace {

/// Removes its entry from the list when it is destroyed.
template <class Entry> class ListedSubscription final : public DnsSd::Subscription {
public:
    ListedSubscription(std::weak_ptr<std::list<Entry>> entries, Entry entry)
        : list(std::move(entries))
    {
        const auto shared = list.lock();
        position = shared->insert(shared->end(), std::move(entry));
    }
    ListedSubscription(const ListedSubscription&) = delete;
    ListedSubscription& operator=(const ListedSubscription&) = delete;
    ~ListedSubscription() override
    {
        if (const auto shared = list.lock())
            shared->erase(position);
    }

private:
    std::weak_ptr<std::list<Entry>> list;
    typename std::list<Entry>::iterator position;
};

} // namespace

std::unique_ptr<DnsSd::Subscription>
FakeDnsSd::browse(std::string type, std::shared_ptr<DispatchQueue> queue,
                  std::function<void(const BrowseUpdate&)> handler)
{
    return std::make_unique<ListedSubscription<Browse>>(
        browseList, Browse{std::move(type), std::move(queue), std::move(handler)});
}

std::unique_ptr<DnsSd::Subscription>
FakeDnsSd::resolve(Endpoint endpoint, std::shared_ptr<DispatchQueue> queue,
                   std::function<void(const ResolveUpdate&)> handler)
{
    return std::make_unique<ListedSubscription<Resolution>>(
        resolutionList, Resolution{std::move(endpoint), std::move(queue), std::move(handler)});
}

std::unique_ptr<DnsSd::Subscription>
FakeDnsSd::registerService(ServiceRegistration service, std::uint16_t port,
                           std::shared_ptr<DispatchQueue> queue,
                           std::function<void(const RegistrationUpdate&)> handler)
{
    return std::make_unique<ListedSubscription<Registration>>(
        registrationList,
        Registration{{std::move(service), port}, std::move(queue), std::move(handler)});
}

std::unique_ptr<DnsSd::Subscription>
FakeDnsSd::findOwn(std::string name, std::string type, std::shared_ptr<DispatchQueue> queue,
                   std::function<void(const std::optional<OwnService>&)> handler)
{
    return std::make_unique<ListedSubscription<OwnQuestion>>(
        ownList, OwnQuestion{std::move(name) + '.' + type, std::move(queue), std::move(handler)});
}

} // namespace quillbox
