#pragma once

#include "platform/system_facts.h"

#include <string>

namespace quillbox {

struct Examination {
    SystemFacts facts;
    /// Something that was asked does not answer and still waits, on threads that are left alone:
    /// the process is to end without tidying up what they use.
    bool isSomethingStuck = false;
};

/// Looks at this computer and its network, all at once, for less than six seconds, whatever is
/// stuck. `phoneType` is like "_smb._tcp". Nothing is changed, published or started but, where no
/// avahi-daemon runs, an engine that asks. Blocks; there is an application object meanwhile.
Examination examineSystem(const std::string& phoneType);

} // namespace quillbox
