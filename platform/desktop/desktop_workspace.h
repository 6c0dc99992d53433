#pragma once

#include "platform/desktop/process.h"
#include "platform/workspace.h"

#include <memory>

namespace quillbox {

/// Opens URLs through the desktop's handlers; the programs that it starts get `limits` back.
std::unique_ptr<Workspace> makeDesktopWorkspace(const InheritedLimits& limits);

} // namespace quillbox
