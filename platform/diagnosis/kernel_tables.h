#pragma once

#include <cstddef>
#include <map>
#include <set>

namespace quillbox::diagnosis {

/// What the kernel's tables say about interfaces, by interface index.
struct KernelTables {
    std::set<int> bridges;
    std::set<int> tunnels;                 ///< point-to-point links over another network
    std::set<int> defaultRoutes;           ///< targets of a default route, or of a half of one (/1)
    std::map<int, std::size_t> neighbours; ///< number of hosts whose hardware address is known
};

/// Reads the tables over rtnetlink, which needs no privileges. A table that cannot be read is left
/// empty.
KernelTables readKernelTables();

} // namespace quillbox::diagnosis
