#pragma once

#include "platform/package_manager.h"

namespace quillbox {

/// The package manager of this computer's system; of the host's if this program runs in a Flatpak
/// sandbox.
PackageManager systemPackageManager();

} // namespace quillbox
