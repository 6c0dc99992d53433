#pragma once

#include "platform/desktop/process.h"
#include "platform/desktop/smb_opener.h"
#include "platform/workspace.h"

#include <memory>

namespace quillbox {

/// Opens https URLs with the desktop's handler, and smb URLs, for which no desktop in Debian has
/// one, with `smbOpener`, which must outlive it. Programs that it starts run with `limits`.
std::unique_ptr<Workspace> makeDesktopWorkspace(const InheritedLimits& limits,
                                                SmbOpener& smbOpener);

} // namespace quillbox
