#pragma once

namespace quillbox {

/// From where this program's listeners can be reached, and where they are advertised.
enum class Reach {
    Network,      ///< from every network that this computer is on
    ThisComputer, ///< from this computer alone
};

} // namespace quillbox
