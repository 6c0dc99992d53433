#pragma once

#include <string_view>
#include <vector>

namespace quillbox::diagnosis {

/// What blanks separate in a line of a table or of a configuration file. The words are parts of the
/// line.
std::vector<std::string_view> wordsOf(std::string_view line);

} // namespace quillbox::diagnosis
