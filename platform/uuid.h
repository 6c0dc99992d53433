#pragma once

#include <string>

namespace quillbox {

/// A fresh random UUID (RFC 4122, version 4) in its printed form.
std::string makeUuid();

} // namespace quillbox
