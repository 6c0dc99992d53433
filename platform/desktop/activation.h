#pragma once

#include <string>

namespace quillbox {

/// The permission to come to the front that the desktop gave this process when it started it
/// (XDG_ACTIVATION_TOKEN, else DESKTOP_STARTUP_ID); empty when there is none of use. The toolkit
/// takes it out of the environment, so this is asked before there is an application object.
std::string activationTokenOfEnvironment();

} // namespace quillbox
