#pragma once

#include "discovery/discovered_device.h"
#include "platform/browser.h"
#include "platform/log.h"

#include <map>
#include <string>
#include <system_error>
#include <vector>

namespace quillbox {

/// Logs which devices of a type appear and disappear, one line each, and the state of browsing.
/// Does nothing while the log category is off. Used on one queue. The log outlives it.
class DeviceStory final {
public:
    DeviceStory(Log& discoveryLog, std::string serviceType);

    DeviceStory(const DeviceStory&) = delete;
    DeviceStory& operator=(const DeviceStory&) = delete;

    void noteState(Browser::State state, std::error_code error);

    /// `devices` is the complete current list; `services` counts all services of the type.
    void noteDevices(const std::vector<DiscoveredDevice>& devices, std::size_t services);

private:
    template <typename Text> void tell(Text&& text);

    Log& log;
    const std::string type;
    std::map<std::string, Log::Clock::time_point> present; ///< the names, and since when
};

} // namespace quillbox
