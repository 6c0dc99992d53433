#pragma once

#include "platform/desktop/opening/smb_opener.h"
#include "platform/desktop/presence/activation_tokens.h"
#include "platform/desktop/process/process.h"
#include "platform/notice.h"
#include "platform/workspace.h"

#include <memory>
#include <string>

namespace quillbox {

/// Opens https URLs with the desktop's handler, and smb URLs, for which no desktop in Debian has
/// one, with `smbOpener`. `shareAdvice` says what the user can do if no program opens shares, in
/// one sentence without its full stop. What it refers to must outlive it.
std::unique_ptr<Workspace> makeDesktopWorkspace(const Inheritance& inheritance,
                                                SmbOpener& smbOpener, ActivationTokens& tokens,
                                                Notice& notice, std::string shareAdvice);

} // namespace quillbox
