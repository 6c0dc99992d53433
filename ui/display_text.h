#pragma once

#include <QString>
#include <string_view>

/// How a text that some host on the network chose looks on screen: on one line, nothing in it taken
/// for markup or for a mnemonic, and nothing in it that hides or turns what stands around it.
///
/// Such characters become U+FFFD: control characters, line and paragraph separators, the controls
/// of the direction of writing, bytes that are not UTF-8, and characters that show nothing at all.
/// Of the last, those stay that change what is seen in ordinary names: joiners in emoji and in the
/// scripts that need them, and variation selectors behind what they vary. Everything else is shown
/// verbatim.
///
/// Each function takes UTF-8.
namespace quillbox::DisplayText {

/// For a label, whose text format has to be Qt::PlainText: by itself it would guess.
QString forLabel(std::string_view text);

/// For a button or a check box.
QString forButton(std::string_view text);

/// For an entry of a menu that the toolkit itself shows. (A menu of the status item may be drawn by
/// the desktop, which takes "_" for the mnemonic.)
QString forMenu(std::string_view text);

/// For a tool tip, of a widget or of the status item. Tool tips have no text format; the toolkit
/// takes those for rich text that look like it, so what comes back never does.
QString forToolTip(std::string_view text);

} // namespace quillbox::DisplayText
