#pragma once

#include <string>
#include <string_view>

namespace quillbox {

/// `text` as it may be shown on a terminal: valid UTF-8 on one line. Control characters, line and
/// paragraph separators, characters that turn the direction of writing, and bytes that are not
/// UTF-8 become U+FFFD. What is printed may hold names that some host on the network chose.
std::string printable(std::string_view text);

/// Writes `text`, made printable, as one line to standard error, in one piece. From any thread.
void printToStandardError(std::string_view text);

} // namespace quillbox
