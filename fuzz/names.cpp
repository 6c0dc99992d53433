// Names of services and hosts from the network, and the text functions that handle them.

#include "platform/dnssd/operations/names.h"

#include "platform/dnssd/avahi/avahi_service_location.h"
#include "platform/dnssd/operations/own_services.h"
#include "platform/values/text.h"

#include <algorithm>
#include <string>

#include "fuzz/harness.h"

namespace {

using namespace quillbox;
using fuzz::require;

void tryText(std::string_view text)
{
    const auto normal = normalized(text);
    require(isValidUtf8(normal) == isValidUtf8(text), "normalisation keeps the validity of UTF-8");
    require(normalized(normal) == normal, "normalisation is idempotent");
    require(canonicallyEqual(text, normal) && canonicallyEqual(normal, text),
            "a text equals its normal form");
    require(trimmed(trimmed(text)) == trimmed(text), "trimming is idempotent");
    for (const std::size_t most : {0U, 1U, 7U, 63U}) {
        const auto cut = truncated(text, most);
        require(cut.size() <= most && text.starts_with(cut), "a prefix of at most that size");
        require(!isValidUtf8(text) || isValidUtf8(cut), "cut between characters");
    }
}

void tryNames(std::string_view text)
{
    using namespace dnssd;
    isServiceType(text);
    require(isSameName(text, folded(text)), "names are case-insensitive");
    if (isInstanceName(text)) {
        for (const unsigned number : {1U, 2U, 99'999U})
            require(isInstanceName(alternativeName(text, number)), "an alternative name is valid");
    }
    const auto slug = hostSlug(text, 24);
    require(slug.size() <= 24 && !slug.starts_with('-') && !slug.ends_with('-'), "a valid label");
    OwnServices services;
    OwnServices::Entry entry(services, {std::string(text), "_smb._tcp"}, 445);
    unsigned number = 1;
    entry.claimHost("computer.local", number);
    require(entry.hostName().size() <= kMaximumLabelSize + 6, "a host name that fits");
    require(entry.loopback().bytes[0] == 127 && entry.loopback().bytes[1] != 0,
            "a loopback address outside 127.0.0.0/16");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto text = fuzz::textOf(data, size);
    tryText(text);
    tryNames(text);
    auto rest = text;
    const auto first = fuzz::takePart(rest);
    require(canonicallyEqual(first, rest) == canonicallyEqual(rest, first),
            "equality is symmetric");
    require(!(CanonicalLess()(first, rest) && CanonicalLess()(rest, first)),
            "the order is asymmetric");
    canonicallyHasPrefix(first, rest);
    if (const auto location = dnssd::decodeServiceLocation({data, size}))
        require(!location->host.empty() && location->host.size() < 1024, "a host name");
    return 0;
}
