#pragma once

namespace quillbox {

/// From where what this program offers can be reached, and where it is advertised.
enum class Reach {
    Network,      ///< from every network that this computer is on
    ThisComputer, ///< from this computer alone
};

} // namespace quillbox
