#include "platform/values/uuid.h"

#include <array>
#include <cstddef>
#include <cstdlib>

#include <unistd.h>

namespace quillbox {

Uuid makeUuid()
{
    // One system call for many, as every relay session needs a UUID: libuuid makes six for each,
    // and each std::random_device causes an exit from a virtual machine.
    thread_local std::array<Uuid, 16> made;
    thread_local std::size_t left = 0;
    if (left == 0) {
        static_assert(sizeof made <= 256, "the most that getentropy(3) gives");
        if (::getentropy(made.data(), sizeof made) != 0)
            std::abort(); // kernel without getrandom(2)
        left = made.size();
    }
    Uuid uuid = made.at(--left);
    uuid.words[1] = (uuid.words[1] & 0xffff0fffU) | 0x00004000U; // version 4
    uuid.words[2] = (uuid.words[2] & 0x3fffffffU) | 0x80000000U; // the variant of RFC 4122
    return uuid;
}

} // namespace quillbox
