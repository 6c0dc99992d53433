#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace quillbox::dnssd {

/// The arguments of a process, each terminated by a NUL byte.
std::string commandLineOf(pid_t process);

/// The processes whose parent is `parent`.
std::vector<pid_t> childrenOf(pid_t parent);

/// The engine processes among the children of `parent`.
std::vector<pid_t> engineProcessesOf(pid_t parent);

} // namespace quillbox::dnssd
