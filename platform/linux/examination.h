#pragma once

#include "platform/values/name_service.h"
#include "platform/values/system_facts.h"

#include <chrono>
#include <functional>
#include <string>

namespace quillbox {

struct Examination {
    SystemFacts facts;
    /// A probe has not finished and still blocks on a detached thread: the process must exit
    /// without destroying what that thread uses.
    bool isSomethingStuck = false;
};

/// Examines this computer and its network. The probes run in parallel and take less than six
/// seconds together, even if some hang. `phoneType` is like "_smb._tcp". `relayHost` gives the host
/// name of a relay that is running, or an empty string; it may block for two seconds. Changes and
/// publishes nothing; starts nothing but, where no avahi-daemon runs, an embedded DNS-SD engine
/// that only queries. Blocks; an application object must exist meanwhile.
Examination examineSystem(const std::string& phoneType,
                          const std::function<std::string()>& relayHost);

struct NameExamination {
    NameFacts facts;
    bool isStuck = false; ///< the lookup has not finished, and still blocks a detached thread
};

/// Whether names that end in ".local" are resolved. `find` looks up `name`, unless it is empty, on
/// another thread until `end`; not if DNS servers are asked beside avahi-daemon, and only if
/// `isResolverRunning`. For avahi-daemon it is this computer's own name. For systemd-resolved,
/// which knows that one anyway, it is a relay's.
NameExamination examineNames(const NameService& service, bool isResolverRunning,
                             const std::string& name, std::function<bool(const std::string&)> find,
                             std::chrono::steady_clock::time_point end);

} // namespace quillbox
