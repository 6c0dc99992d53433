#pragma once

#include <algorithm>
#include <chrono>

namespace quillbox::dnssd {

/// How long to wait before what was refused is tried again: twice as long each time, from half a
/// second (or from nothing at all, once) to half a minute.
class GrowingPause {
public:
    static constexpr std::chrono::milliseconds kShortest{500};
    static constexpr std::chrono::milliseconds kLongest{30'000};

    enum class First { Nothing, Shortest };

    explicit GrowingPause(First firstPause) : first(firstPause) { reset(); }

    std::chrono::milliseconds next()
    {
        const auto pause = current;
        current = std::clamp(2 * current, kShortest, kLongest);
        return pause;
    }

    void reset() { current = first == First::Nothing ? std::chrono::milliseconds(0) : kShortest; }

private:
    First first;
    std::chrono::milliseconds current{0};
};

} // namespace quillbox::dnssd
