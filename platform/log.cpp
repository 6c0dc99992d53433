#include "platform/log.h"

#include <algorithm>

namespace quillbox {

std::string_view nameOf(LogCategory category)
{
    switch (category) {
    case LogCategory::Discovery:
        return "discovery";
    case LogCategory::Engine:
        return "engine";
    case LogCategory::Advertising:
        return "advertising";
    case LogCategory::Relay:
        return "relay";
    case LogCategory::Connection:
        return "connection";
    case LogCategory::Desktop:
        break;
    }
    return "desktop";
}

std::optional<LogCategory> logCategoryNamed(std::string_view name)
{
    const auto* found = std::find_if(kLogCategories.begin(), kLogCategories.end(),
                                     [name](auto each) { return nameOf(each) == name; });
    return found == kLogCategories.end() ? std::nullopt : std::optional(*found);
}

std::string durationText(Log::Clock::duration duration)
{
    using std::chrono::duration_cast;
    const auto milliseconds = duration_cast<std::chrono::milliseconds>(duration).count();
    if (milliseconds < 1000)
        return std::to_string(milliseconds) + " ms";
    const auto seconds = milliseconds / 1000;
    if (seconds < 60)
        return std::to_string(seconds) + '.' + std::to_string(milliseconds % 1000 / 100) + " s";
    const auto minutes = seconds / 60;
    if (minutes < 60)
        return std::to_string(minutes) + " min " + std::to_string(seconds % 60) + " s";
    return std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min";
}

} // namespace quillbox
