#pragma once

#include "platform/system_facts.h"

#include <string>

namespace quillbox {

struct Examination {
    SystemFacts facts;
    /// A probe has not finished and still blocks on a detached thread: the process must exit
    /// without destroying what that thread uses.
    bool isSomethingStuck = false;
};

/// Examines this computer and its network. The probes run in parallel and take less than six
/// seconds together, even if some hang. `phoneType` is like "_smb._tcp". Changes and publishes
/// nothing; starts nothing but, where no avahi-daemon runs, an embedded DNS-SD engine that only
/// queries. Blocks; an application object must exist meanwhile.
Examination examineSystem(const std::string& phoneType);

} // namespace quillbox
