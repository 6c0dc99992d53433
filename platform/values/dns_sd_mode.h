#pragma once

#include <array>
#include <string_view>

namespace quillbox {

/// Which DNS-SD engine is used.
enum class DnsSdMode {
    Automatic, ///< avahi-daemon while it answers, else the embedded engine
    Daemon,
    Embedded,
};

/// The names of the modes, as on the command line and in the settings; the first is the default.
inline constexpr std::array<std::string_view, 3> kDnsSdNames{"auto", "daemon", "embedded"};

} // namespace quillbox
