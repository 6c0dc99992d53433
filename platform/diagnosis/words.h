#pragma once

#include <string_view>
#include <vector>

namespace quillbox::diagnosis {

/// The blank-separated words of a line of a table or a configuration file, as views into the line.
std::vector<std::string_view> wordsOf(std::string_view line);

} // namespace quillbox::diagnosis
