#pragma once

#include <cstddef>
#include <map>
#include <set>

namespace quillbox::diagnosis {

/// What the kernel's tables say of interfaces, each by its index.
struct KernelTables {
    std::set<int> bridges;
    std::set<int> tunnels;                 ///< they lead to one place, by way of another network
    std::set<int> defaultRoutes;           ///< a route to everywhere, or to half of it, leads there
    std::map<int, std::size_t> neighbours; ///< hosts whose hardware address is known
};

/// Asks over rtnetlink, which needs no privilege. What cannot be read is left empty.
KernelTables readKernelTables();

} // namespace quillbox::diagnosis
