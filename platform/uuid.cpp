#include "platform/uuid.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <unistd.h>

namespace quillbox {

std::string makeUuid()
{
    // One system call, with nothing seeded and nothing kept. Each session of the relay has one of
    // these: libuuid makes six calls, and a virtual machine is left for each std::random_device.
    std::array<std::uint32_t, 4> words{};
    if (::getentropy(words.data(), sizeof words) != 0)
        std::abort();                                  // only where the system has none at all
    words[1] = (words[1] & 0xffff0fffU) | 0x00004000U; // version 4
    words[2] = (words[2] & 0x3fffffffU) | 0x80000000U; // the variant of RFC 4122
    constexpr std::string_view kDigits = "0123456789abcdef";
    constexpr std::string_view kForm = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    std::string text(kForm);
    unsigned digit = 0;
    for (char& place : text) {
        if (place == '-')
            continue;
        place = kDigits[words[digit / 8] >> (28 - 4 * (digit % 8)) & 0xfU];
        ++digit;
    }
    return text;
}

} // namespace quillbox
