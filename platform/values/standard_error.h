#pragma once

#include <string>
#include <string_view>

namespace quillbox {

/// Makes `text` safe to print on a terminal: valid UTF-8 on one line. Control characters, line and
/// paragraph separators, bidirectional formatting characters, and bytes that are not UTF-8 become
/// U+FFFD. Needed because messages contain names chosen by hosts on the network.
std::string printable(std::string_view text);

/// Writes `printable(text)` as one line to standard error. Thread-safe: lines of different threads
/// do not interleave.
void printToStandardError(std::string_view text);

} // namespace quillbox
