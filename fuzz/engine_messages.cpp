// Messages between the program and its engine process, which contain data from the network.

#include "platform/dnssd/engine/message_codec.h"

#include <algorithm>

#include "fuzz/harness.h"

namespace {

template <class Content>
void tryMessage(const std::optional<quillbox::dnssd::Message<Content>>& message,
                std::span<const std::uint8_t> packet)
{
    if (message)
        quillbox::fuzz::require(
            std::ranges::equal(quillbox::dnssd::encode(message->generation, message->content),
                               packet),
            "a message has only one encoding");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::span packet(data, size);
    tryMessage(quillbox::dnssd::decodeRequest(packet), packet);
    tryMessage(quillbox::dnssd::decodeEvent(packet), packet);
    return 0;
}
