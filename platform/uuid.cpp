#include "platform/uuid.h"

#include <array>

#include <uuid/uuid.h>

namespace quillbox {

std::string makeUuid()
{
    uuid_t value;
    uuid_generate_random(value);
    std::array<char, UUID_STR_LEN> text{};
    uuid_unparse_lower(value, text.data());
    return {text.data(), text.size() - 1};
}

} // namespace quillbox
