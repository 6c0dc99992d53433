#pragma once

#include <algorithm>
#include <chrono>

namespace quillbox::dnssd {

/// Exponential backoff after a refusal: doubles from 500 ms (or from 0, once) up to 30 s.
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
