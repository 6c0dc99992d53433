#pragma once

#include "platform/desktop/activation_tokens.h"

#include <memory>

namespace quillbox {

/// Requests tokens from the compositor (XDG Activation Protocol) over Qt's connection: a token is
/// worth something only if it refers to the last input that this connection received.
std::unique_ptr<ActivationTokens> makeWaylandTokens();

} // namespace quillbox
