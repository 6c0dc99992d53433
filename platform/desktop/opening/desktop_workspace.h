#pragma once

#include "platform/desktop/opening/smb_opener.h"
#include "platform/desktop/presence/activation_tokens.h"
#include "platform/desktop/process/process.h"
#include "platform/notice.h"
#include "platform/workspace.h"

#include <memory>
#include <string>

namespace quillbox {

/// What the user can do if there is no program for a URL, in one sentence without its full stop.
struct OpeningAdvice {
    std::string forShares;
    std::string forPages;
};

/// Opens https URLs with the desktop's handler, and smb URLs, for which no desktop in Debian has
/// one, with `smbOpener`. What it refers to must outlive it.
std::unique_ptr<Workspace> makeDesktopWorkspace(const Inheritance& inheritance,
                                                SmbOpener& smbOpener, ActivationTokens& tokens,
                                                Notice& notice, const OpeningAdvice& advice);

} // namespace quillbox
