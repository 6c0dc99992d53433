#pragma once

#include <string>

namespace quillbox {

/// The activation token that the desktop passed to this process when it started it
/// (XDG_ACTIVATION_TOKEN, else DESKTOP_STARTUP_ID); empty if there is no valid one. Call it before
/// constructing the application object, because Qt removes the token from the environment.
std::string activationTokenOfEnvironment();

} // namespace quillbox
