#include "discovery/device_story.h"

#include "platform/text.h"

#include <set>
#include <utility>

namespace quillbox {

template <typename Text> void DeviceStory::tell(Text&& text)
{
    log.tell(LogCategory::Discovery, [&] { return type + ": " + text(); });
}

DeviceStory::DeviceStory(Log& discoveryLog, std::string serviceType)
    : log(discoveryLog), type(std::move(serviceType))
{
}

void DeviceStory::noteState(Browser::State state, std::error_code error)
{
    if (state == Browser::State::Ready)
        tell([] { return "browsing"; });
    else if (state == Browser::State::Waiting)
        tell([&] { return "cannot browse at present: " + error.message(); });
    else if (state == Browser::State::Failed)
        tell([&] { return "cannot browse: " + error.message(); });
}

void DeviceStory::noteDevices(const std::vector<DiscoveredDevice>& devices, std::size_t services)
{
    if (!log.isOn(LogCategory::Discovery))
        return;
    std::set<std::string> names;
    for (const DiscoveredDevice& device : devices)
        names.insert(device.name);
    const auto now = log.now();
    std::erase_if(present, [&](const auto& entry) {
        const bool isGone = !names.contains(entry.first);
        if (isGone)
            tell([&] {
                return inDoubleQuotes(entry.first) + " has disappeared after "
                       + durationText(now - entry.second);
            });
        return isGone;
    });
    for (const std::string& name : names) {
        if (present.emplace(name, now).second)
            tell([&] { return inDoubleQuotes(name) + " has appeared"; });
    }
    if (services > devices.size())
        tell([&] {
            return "other services of this type: " + std::to_string(services - devices.size());
        });
}

} // namespace quillbox
