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

/// Empty when the message does not fit into a packet.
Packet encode(const Request& request);
Packet encode(const Event& event);

/// Nothing when the packet is malformed, too short, too long, or of an unknown kind.
std::optional<Request> decodeRequest(std::span<const std::uint8_t> packet);
std::optional<Event> decodeEvent(std::span<const std::uint8_t> packet);

} // namespace quillbox::dnssd
