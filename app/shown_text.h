#pragma once

#include <QString>
#include <string>
#include <string_view>

namespace quillbox {

/// How a text that some host on the network chose looks to the user, in the window or on a
/// terminal: on one line, with nothing in it that hides or turns what stands around it or that a
/// terminal would act upon. Takes UTF-8.
///
/// Such characters become U+FFFD: control characters, line and paragraph separators, the controls
/// of the direction of writing, bytes that are not UTF-8, and characters that show nothing at all.
/// Of the last, those stay that change what is seen in ordinary names: joiners in emoji and in the
/// scripts that need them, and variation selectors behind what they vary. Everything else is shown
/// verbatim.
QString shownText(std::string_view text);

/// The same as UTF-8, for a terminal.
std::string shownUtf8(std::string_view text);

} // namespace quillbox
