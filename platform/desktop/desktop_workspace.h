#pragma once

#include "platform/desktop/process.h"
#include "platform/desktop/smb_opener.h"
#include "platform/workspace.h"

#include <memory>

namespace quillbox {

/// Opens https URLs through the desktop's handler, and smb URLs, for which no desktop of Debian has
/// one, through `smbOpener`, which outlives it. The programs that it starts get `limits` back.
std::unique_ptr<Workspace> makeDesktopWorkspace(const InheritedLimits& limits,
                                                SmbOpener& smbOpener);

} // namespace quillbox
