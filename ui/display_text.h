#pragma once

#include <QString>
#include <string_view>

/// `shownText` in a form that each kind of control shows verbatim, without interpreting markup or
/// mnemonics. Each function takes UTF-8.
namespace quillbox::DisplayText {

/// For a label, whose text format must be Qt::PlainText: the default guesses the format.
QString forLabel(std::string_view text);

/// For a button or a check box.
QString forButton(std::string_view text);

/// For an entry of a menu that Qt draws. (The menu of the status item may be drawn by the desktop,
/// which takes "_" for a mnemonic.)
QString forMenu(std::string_view text);

/// For a tool tip, of a widget or of the status item. Tool tips have no text format: Qt treats text
/// that looks like rich text as such, so the result never does.
QString forToolTip(std::string_view text);

} // namespace quillbox::DisplayText
