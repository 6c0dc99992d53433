#pragma once

#include "platform/system_facts.h"

#include <chrono>
#include <string>

namespace quillbox {

/// Looks for services of `type`, which is like "_smb._tcp", as the program does: with the system's
/// avahi-daemon or else the embedded engine. Publishes nothing. Browses for `browsing`, then tries
/// the ports for `connecting`; stopping the engine can take another half second. Blocks; any
/// thread.
PhonesFacts surveyPhones(const std::string& type, std::chrono::milliseconds browsing,
                         std::chrono::milliseconds connecting);

} // namespace quillbox
