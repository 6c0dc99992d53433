#pragma once

#include "platform/values/system_facts.h"

#include <filesystem>
#include <string_view>

namespace quillbox::diagnosis {

/// Whether ufw is enabled, according to the text of its ufw.conf.
Seen ufwIn(std::string_view configuration);

/// Whether ufw is enabled on the system below `root`; No if it is not installed.
Seen probeUfw(const std::filesystem::path& root = "/");

} // namespace quillbox::diagnosis
