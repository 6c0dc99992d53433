#pragma once

#include "platform/dnssd/messages.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// The form that requests and events have on the socket between this process and its engine
/// process: one message a packet, numbers in the byte order of the machine that both run on.
/// Neither side trusts the other, for what the network sends has passed through it: a packet that
/// is not exactly one well-formed message is none at all.
namespace quillbox::dnssd {

/// No message is longer; a longer packet is none of ours.
inline constexpr std::size_t kMaximumPacketLength = 65536;

using Packet = std::vector<std::uint8_t>;

/// Empty when the message does not fit into a packet.
Packet encode(const Request& request);
Packet encode(const Event& event);

/// Nothing when the packet is garbled, too short, too long, or of an unknown kind.
std::optional<Request> decodeRequest(std::span<const std::uint8_t> packet);
std::optional<Event> decodeEvent(std::span<const std::uint8_t> packet);

} // namespace quillbox::dnssd
