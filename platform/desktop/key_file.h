#pragma once

#include <string_view>

namespace quillbox {

/// The value of `key` in a group of `text`, which has the format of desktop entries (Desktop Entry
/// Specification of freedesktop.org, "Basic format of the file"), with its escapes. Empty if there
/// is none. Refers to `text`.
std::string_view keyFileValue(std::string_view text, std::string_view group, std::string_view key);

/// Whether such a value is a list that has this element.
bool hasElement(std::string_view list, std::string_view wanted);

} // namespace quillbox
