#pragma once

#include <QString>
#include <string_view>

/// `shownText` as each control of the window takes it, which keeps it from taking anything in it
/// for markup or for a mnemonic. Each function takes UTF-8.
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
