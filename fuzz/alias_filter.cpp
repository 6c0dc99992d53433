// Multicast DNS messages, before libavahi-core reads them.

#include "platform/dnssd/processes/alias_filter.h"

#include <vector>

#include "fuzz/harness.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::span message(data, size);
    if (!quillbox::dnssd::isFreeOfAliases(message))
        return 0;
    std::vector<std::uint8_t> longer(message.begin(), message.end());
    longer.push_back(0);
    quillbox::fuzz::require(quillbox::dnssd::isFreeOfAliases(longer),
                            "what follows the records changes nothing");
    return 0;
}
