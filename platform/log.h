#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillbox {

/// The subject of a log line.
enum class LogCategory : std::uint8_t {
    Discovery,   ///< phones that appear and disappear
    Engine,      ///< start and stop of the DNS-SD engine
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

/// The log for troubleshooting. Thread-safe. It outlives all objects that log to it.
///
/// Lines contain no addresses, and no names but those of phones.
class Log {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~Log() = default;

    virtual bool isOn(LogCategory category) const = 0;

    /// `text` returns the line; it is called only if the category is on.
    template <typename Text> void tell(LogCategory category, Text&& text)
    {
        if (isOn(category))
            write(category, text());
    }

    /// For durations in lines.
    virtual Clock::time_point now() const = 0;

    /// Returns a number for a session, unique in this process; the first is 1.
    virtual std::uint64_t numberSession() = 0;

protected:
    /// `text` may contain names chosen by hosts on the network.
    virtual void write(LogCategory category, const std::string& text) = 0;
};

/// "250 ms", "1.5 s", "2 min 5 s", "3 h 20 min".
std::string durationText(Log::Clock::duration duration);

} // namespace quillbox
