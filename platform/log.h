#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillbox {

/// What a line of the log is about.
enum class LogCategory : std::uint8_t {
    Discovery,   ///< the phones that appear and go
    Engine,      ///< who speaks DNS-SD, and since when
    Advertising, ///< the names that this computer announces
    Relay,       ///< relays, from their start to their end
    Connection,  ///< sessions, from their start to their end
    Desktop,     ///< what is opened, and with what
};

inline constexpr std::array kLogCategories{LogCategory::Discovery,   LogCategory::Engine,
                                           LogCategory::Advertising, LogCategory::Relay,
                                           LogCategory::Connection,  LogCategory::Desktop};

/// "discovery"
std::string_view nameOf(LogCategory category);
std::optional<LogCategory> logCategoryNamed(std::string_view name);

/// What the program does, told to who looks for a fault. Thread-safe. It outlives who tells.
///
/// A line has no addresses, and of names those of phones alone.
class Log {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~Log() = default;

    virtual bool isOn(LogCategory category) const = 0;

    /// `text` makes the line, and is called only where the category is on.
    template <typename Text> void tell(LogCategory category, Text&& text)
    {
        if (isOn(category))
            write(category, text());
    }

    /// For durations in lines.
    virtual Clock::time_point now() const = 0;

    /// A number for a session that no other has in this process; the first is 1.
    virtual std::uint64_t numberSession() = 0;

protected:
    /// The text may hold what strangers chose.
    virtual void write(LogCategory category, const std::string& text) = 0;
};

/// "250 ms", "1.5 s", "2 min 5 s", "3 h 20 min".
std::string durationText(Log::Clock::duration duration);

} // namespace quillbox
