#include "platform/dnssd/processes/alias_filter.h"

#include <array>
#include <cstddef>
#include <utility>

#include <sys/socket.h>

namespace quillbox::dnssd {

namespace {

constexpr unsigned kCanonicalName = 5;  // RFC 1035, section 3.2.2
constexpr unsigned kDelegatedName = 39; // RFC 6672

/// The longest message of multicast DNS (RFC 6762, section 17).
constexpr std::size_t kMaximumMessage = 9000;

/// Walks through a message without interpreting more than the borders of its parts.
class Walker final {
public:
    explicit Walker(std::span<const std::uint8_t> message) : rest(message) {}

    bool isGood() const { return good; }

    void skip(std::size_t count)
    {
        good = good && rest.size() >= count;
        if (good)
            rest = rest.subspan(count);
    }

    unsigned number()
    {
        const auto bytes = rest;
        skip(2);
        return good ? (static_cast<unsigned>(bytes[0]) << 8U) | bytes[1] : 0;
    }

    void skipName()
    {
        constexpr unsigned kPointer = 0xc0;
        while (good && !rest.empty()) {
            const unsigned length = rest.front();
            if (length >= kPointer)
                return skip(2);
            skip(1 + length);
            if (length == 0)
                return;
        }
        good = false;
    }

private:
    std::span<const std::uint8_t> rest;
    bool good = true;
};

bool isMulticastSocket(int descriptor)
{
    const auto option = [descriptor](int which) {
        int value = -1;
        socklen_t size = sizeof value;
        return ::getsockopt(descriptor, SOL_SOCKET, which, &value, &size) == 0 ? value : -1;
    };
    const int domain = option(SO_DOMAIN);
    return option(SO_TYPE) == SOCK_DGRAM && (domain == AF_INET || domain == AF_INET6);
}

/// Removes the next message from the socket if it is not to be read.
bool discardsNext(int descriptor)
{
    std::array<std::uint8_t, kMaximumMessage> buffer;
    const ssize_t length =
        ::recv(descriptor, buffer.data(), buffer.size(), MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
    if (length < 0)
        return false; // the library handles the error
    const auto size = static_cast<std::size_t>(length);
    if (size <= buffer.size() && isFreeOfAliases(std::span(buffer).first(size)))
        return false;
    ::recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
    return true;
}

} // namespace

bool isFreeOfAliases(std::span<const std::uint8_t> message)
{
    Walker walker(message);
    walker.skip(4); // identifier and flags
    const unsigned questions = walker.number();
    unsigned records = walker.number(); // answers
    records += walker.number();         // authority
    records += walker.number();         // additional
    for (unsigned i = 0; walker.isGood() && i < questions; ++i) {
        walker.skipName();
        walker.skip(4); // type and class
    }
    for (unsigned i = 0; walker.isGood() && i < records; ++i) {
        walker.skipName();
        const unsigned type = walker.number();
        if (type == kCanonicalName || type == kDelegatedName)
            return false;
        walker.skip(6); // class and lifetime
        walker.skip(walker.number());
    }
    return walker.isGood();
}

struct AliasFilter::Watch {
    AvahiWatchCallback callback = nullptr;
    void* context = nullptr;
};

/// Avahi passes the address of the base to `makeWatch`.
struct AliasFilter::Poll : AvahiPoll {
    explicit Poll(const AvahiPoll& original) : AvahiPoll(original), inner(original) {}

    const AvahiPoll& inner;
    std::vector<std::unique_ptr<Watch>> watches; ///< the library opens its sockets once
};

AliasFilter::AliasFilter(const AvahiPoll& poll) : filtered(std::make_unique<Poll>(poll))
{
    filtered->watch_new = &AliasFilter::makeWatch;
}

AliasFilter::~AliasFilter() = default;

const AvahiPoll* AliasFilter::poll() const
{
    return filtered.get();
}

AvahiWatch* AliasFilter::makeWatch(const AvahiPoll* api, int descriptor, AvahiWatchEvent events,
                                   AvahiWatchCallback callback, void* context)
{
    auto& poll = const_cast<Poll&>(static_cast<const Poll&>(*api));
    if (!isMulticastSocket(descriptor))
        return poll.inner.watch_new(&poll.inner, descriptor, events, callback, context);
    constexpr int kReceiveBuffer = 1 << 20; // the kernel lowers it to its limit
    ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
    poll.watches.push_back(std::make_unique<Watch>(Watch{callback, context}));
    return poll.inner.watch_new(&poll.inner, descriptor, events, &AliasFilter::onEvent,
                                poll.watches.back().get());
}

void AliasFilter::onEvent(AvahiWatch* watch, int descriptor, AvahiWatchEvent events, void* context)
{
    const auto& original = *static_cast<const Watch*>(context);
    if ((static_cast<unsigned>(events) & AVAHI_WATCH_IN) == 0 || !discardsNext(descriptor))
        original.callback(watch, descriptor, events, original.context);
}

} // namespace quillbox::dnssd
