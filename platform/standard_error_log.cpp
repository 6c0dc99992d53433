#include "platform/standard_error_log.h"

#include "platform/values/standard_error.h"

#include <atomic>
#include <bitset>
#include <cstddef>

namespace quillbox {

namespace {

std::size_t indexOf(LogCategory category)
{
    return static_cast<std::size_t>(category);
}

/// "[    1.234] "
std::string stamp(Log::Clock::duration sinceStart)
{
    constexpr std::size_t kWidth = 5;
    const auto all = std::chrono::duration_cast<std::chrono::milliseconds>(sinceStart).count();
    const std::string seconds = std::to_string(all / 1000);
    const std::string rest = std::to_string(1000 + all % 1000).substr(1);
    const std::size_t blanks = seconds.size() < kWidth ? kWidth - seconds.size() : 0;
    return '[' + std::string(blanks, ' ') + seconds + '.' + rest + "] ";
}

class StandardErrorLog final : public Log {
public:
    explicit StandardErrorLog(const std::set<LogCategory>& categories)
    {
        for (const LogCategory category : categories)
            chosen.set(indexOf(category));
    }

    bool isOn(LogCategory category) const override { return chosen[indexOf(category)]; }
    Clock::time_point now() const override { return Clock::now(); }
    std::uint64_t numberSession() override
    {
        return sessions.fetch_add(1, std::memory_order_relaxed) + 1;
    }

private:
    void write(LogCategory category, const std::string& text) override
    {
        printToStandardError(stamp(now() - start) + std::string(nameOf(category)) + ": " + text);
    }

    const Clock::time_point start = Clock::now();
    std::bitset<kLogCategories.size()> chosen;
    std::atomic<std::uint64_t> sessions = 0;
};

} // namespace

std::unique_ptr<Log> makeStandardErrorLog(const std::set<LogCategory>& categories)
{
    return std::make_unique<StandardErrorLog>(categories);
}

} // namespace quillbox
