#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include <avahi-common/watch.h>

namespace quillbox::dnssd {

/// Whether a DNS message (RFC 1035, section 4) is well-formed, as far as the borders of its records
/// go, and none of its records is an alias (CNAME, DNAME).
bool isFreeOfAliases(std::span<const std::uint8_t> message);

/// Keeps aliases away from libavahi-core: discards messages that are not free of them before the
/// library reads them. Every question of the library follows aliases, whatever record it is for,
/// and in version 0.8 an alias that expires together with its target aborts the process, as do
/// aliases in a circle. DNS-SD needs none (RFC 6763).
///
/// Also enlarges the receive buffers of the library's sockets, because packets come in bursts: a
/// flood of names, or all answers to one query. Goodbyes are sent once, so a dropped one leaves a
/// phone in the list.
class AliasFilter final {
public:
    /// `poll` must outlive this object, and this object everything that uses its `poll`.
    explicit AliasFilter(const AvahiPoll& poll);
    AliasFilter(const AliasFilter&) = delete;
    AliasFilter& operator=(const AliasFilter&) = delete;
    ~AliasFilter();

    /// For the library: the same event loop, but without the discarded messages.
    const AvahiPoll* poll() const;

private:
    struct Watch;
    struct Poll;

    static AvahiWatch* makeWatch(const AvahiPoll* api, int descriptor, AvahiWatchEvent events,
                                 AvahiWatchCallback callback, void* context);
    static void onEvent(AvahiWatch* watch, int descriptor, AvahiWatchEvent events, void* context);

    std::unique_ptr<Poll> filtered;
};

} // namespace quillbox::dnssd
