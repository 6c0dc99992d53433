#pragma once

#include <functional>
#include <memory>
#include <string>

namespace quillbox {

/// Obtains activation tokens for the programs that this process starts for the user: with a fresh
/// one their windows come to the front, without one a window manager takes them for windows that
/// nobody asked for. Main thread only.
class ActivationTokens {
public:
    using Given = std::function<void(const std::string& token)>;

    /// Cancels what is still requested.
    virtual ~ActivationTokens() = default;

    /// Requests a token for what the user just did. `permission` is the token of the process in
    /// which the user did it, such as a panel; empty if that is this process. Reports exactly once,
    /// perhaps inside this call, within half a second; with an empty token if the desktop gives
    /// none.
    virtual void request(const std::string& permission, Given given) = 0;
};

/// The implementation for the platform that Qt uses: X or Wayland. Without a display there are no
/// tokens.
///
/// On the main thread, after the application object has been constructed.
std::unique_ptr<ActivationTokens> makeActivationTokens();

/// For the X server that DISPLAY names. Needs no application object.
std::unique_ptr<ActivationTokens> makeX11Tokens();

/// Requests tokens from the compositor (XDG Activation Protocol) over Qt's connection: a token is
/// worth something only if it refers to the last input that this connection received. Without a
/// connection it passes permissions on, and there are no other tokens.
std::unique_ptr<ActivationTokens> makeWaylandTokens();

} // namespace quillbox
