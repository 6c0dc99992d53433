#pragma once

#include <QString>
#include <string>
#include <string_view>

namespace quillbox {

/// Makes text that some host on the network chose safe to show, in the window or on a terminal: on
/// one line, without characters that hide or reorder the surrounding text or that a terminal
/// interprets. Takes UTF-8.
///
/// Replaced by U+FFFD: control characters, line and paragraph separators, bidirectional formatting
/// characters, bytes that are not UTF-8, and invisible characters. Invisible characters that affect
/// the rendering of ordinary names are kept: joiners in emoji and in the scripts that need them,
/// zero-width spaces in scripts without spaces, variation selectors after a character that has
/// variants, and the tags of flags. Everything else is shown verbatim.
QString shownText(std::string_view text);

/// The same as UTF-8, for a terminal.
std::string shownUtf8(std::string_view text);

} // namespace quillbox
