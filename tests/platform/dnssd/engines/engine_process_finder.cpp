#include "tests/platform/dnssd/engines/engine_process_finder.h"

#include "platform/dnssd/processes/engine_child.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace quillbox::dnssd {

std::string commandLineOf(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/cmdline");
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<pid_t> childrenOf(pid_t parent)
{
    std::vector<pid_t> result;
    const auto tasks = "/proc/" + std::to_string(parent) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        std::ifstream children(task.path() / "children");
        for (pid_t child = 0; children >> child;)
            result.push_back(child);
    }
    return result;
}

std::vector<pid_t> engineProcessesOf(pid_t parent)
{
    std::vector<pid_t> result;
    for (const pid_t child : childrenOf(parent)) {
        if (commandLineOf(child).find(kEngineChildOption) != std::string::npos)
            result.push_back(child);
    }
    return result;
}

} // namespace quillbox::dnssd
