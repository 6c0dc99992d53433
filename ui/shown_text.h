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
///
/// A label that shows it must have the text format Qt::PlainText: the default guesses the format.
QString shownText(std::string_view text);

/// The same as UTF-8, for a terminal.
std::string shownUtf8(std::string_view text);

/// The same for an entry of a menu that Qt draws, without a mnemonic. (The menu of the status item
/// may be drawn by the desktop, which takes "_" for a mnemonic.)
QString shownInMenu(std::string_view text);

/// The same for a tool tip, of a widget or of the status item. Tool tips have no text format: Qt
/// treats text that looks like rich text as such, so the result never does.
QString shownInToolTip(std::string_view text);

} // namespace quillbox
