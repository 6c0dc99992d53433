#pragma once

#include "platform/log.h"

#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// A log that keeps its lines as "category: text", and whose clock a test advances. For use by one
/// thread.
class RecordingLog final : public Log {
public:
    bool isOn(LogCategory category) const override
    {
        return isTelling && (!only || category == *only);
    }
    Clock::time_point now() const override { return time; }
    std::uint64_t numberSession() override { return ++sessions; }

    bool isTelling = true;
    std::optional<LogCategory> only; ///< nothing: all categories
    Clock::time_point time;
    std::uint64_t sessions = 0;
    std::vector<std::string> lines;

private:
    void write(LogCategory category, const std::string& text) override
    {
        lines.push_back(std::string(nameOf(category)) + ": " + text);
    }
};

} // namespace quillbox
