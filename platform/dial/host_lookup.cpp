#include "platform/dial/host_lookup.h"

#include "platform/values/socket_address.h"

#include <cerrno>
#include <thread>
#include <utility>

#include <netdb.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

/// The error codes of getaddrinfo(3), except EAI_SYSTEM, which stands for `errno`.
class LookupCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "lookup"; }
    std::string message(int value) const override { return ::gai_strerror(value); }
};

const std::error_category& lookupCategory()
{
    static const LookupCategory category;
    return category;
}

std::error_code toErrorCode(int result)
{
    switch (result) {
    case 0:
        return {};
    case EAI_SYSTEM:
        return {errno, std::system_category()};
    case EAI_AGAIN:
        return {EAI_AGAIN, lookupCategory()};
    default:
        return hostNotFound();
    }
}

std::vector<SocketAddress> ask(const std::string& name, std::error_code& error)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_ADDRCONFIG;
    addrinfo* first = nullptr;
    error = toErrorCode(::getaddrinfo(name.c_str(), nullptr, &hints, &first));
    std::vector<SocketAddress> addresses;
    if (error)
        return addresses;
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(first, &::freeaddrinfo);
    for (const auto* each = first; each != nullptr; each = each->ai_next)
        addresses.push_back(toSocketAddress(each->ai_addr));
    return addresses;
}

} // namespace

std::error_code hostNotFound()
{
    return {EAI_NONAME, lookupCategory()};
}

void HostLookup::lookUp(const std::string& name, Done done)
{
    {
        const std::lock_guard lock(mutex_);
        auto& waiting = pending_[name];
        waiting.push_back(std::move(done));
        if (waiting.size() > 1)
            return;
    }
    try {
        std::thread([self = shared_from_this(), name] {
            std::error_code error;
            const auto addresses = ask(name, error);
            self->finish(name, addresses, error);
        }).detach();
    } catch (const std::system_error& failure) {
        finish(name, {}, failure.code());
    }
}

void HostLookup::finish(const std::string& name, const std::vector<SocketAddress>& addresses,
                        std::error_code error)
{
    std::vector<Done> waiting;
    {
        const std::lock_guard lock(mutex_);
        const auto entry = pending_.find(name);
        waiting = std::move(entry->second);
        pending_.erase(entry);
    }
    for (const auto& done : waiting)
        done(addresses, error);
}

} // namespace quillbox
