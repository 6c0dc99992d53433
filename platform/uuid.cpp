#include "platform/uuid.h"

#include <cstdlib>

#include <unistd.h>

namespace quillbox {

Uuid makeUuid()
{
    // One system call, without seeding or state, because every relay session needs a UUID: libuuid
    // makes six system calls, and each std::random_device causes an exit from a virtual machine.
    Uuid uuid;
    if (::getentropy(uuid.words.data(), sizeof uuid.words) != 0)
        std::abort();                                            // kernel without getrandom(2)
    uuid.words[1] = (uuid.words[1] & 0xffff0fffU) | 0x00004000U; // version 4
    uuid.words[2] = (uuid.words[2] & 0x3fffffffU) | 0x80000000U; // the variant of RFC 4122
    return uuid;
}

} // namespace quillbox
