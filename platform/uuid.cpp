#include "platform/uuid.h"

#include <cstdlib>

#include <unistd.h>

namespace quillbox {

Uuid makeUuid()
{
    // One system call, with nothing seeded and nothing kept. Each session of the relay has one of
    // these: libuuid makes six calls, and a virtual machine is left for each std::random_device.
    Uuid uuid;
    if (::getentropy(uuid.words.data(), sizeof uuid.words) != 0)
        std::abort();                                            // only where the system has none
    uuid.words[1] = (uuid.words[1] & 0xffff0fffU) | 0x00004000U; // version 4
    uuid.words[2] = (uuid.words[2] & 0x3fffffffU) | 0x80000000U; // the variant of RFC 4122
    return uuid;
}

} // namespace quillbox
