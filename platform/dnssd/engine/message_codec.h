#pragma once

#include "platform/dnssd/engine/messages.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// The format of requests and events on the socket between this process and its engine process: one
/// message per packet, numbers in host byte order. Neither side trusts the other, because the
/// messages contain data from the network: a packet that is not exactly one well-formed message is
/// rejected.
namespace quillbox::dnssd {

/// Longer packets are rejected.
inline constexpr std::size_t kMaximumPacketLength = 65536;

using Packet = std::vector<std::uint8_t>;

/// A request or an event, and the generation that it belongs to: that of the last EngineUp, or the
/// one that begins with it; 0 before the first one.
template <class Content> struct Message {
    Generation generation = 0;
    Content content;

    bool operator==(const Message&) const = default;
};

/// Empty when the message does not fit into a packet.
Packet encode(Generation generation, const Request& request);
Packet encode(Generation generation, const Event& event);

/// Nothing when the packet is malformed, too short, too long, or of an unknown kind.
std::optional<Message<Request>> decodeRequest(std::span<const std::uint8_t> packet);
std::optional<Message<Event>> decodeEvent(std::span<const std::uint8_t> packet);

} // namespace quillbox::dnssd
