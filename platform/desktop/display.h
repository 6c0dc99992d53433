#pragma once

namespace quillbox {

enum class Display {
    Any,     ///< what the toolkit takes by itself works
    Wayland, ///< only Wayland answers, and the toolkit is to be told so
    None,
};

/// Whether this process can show windows. It connects to the display and leaves again: the toolkit
/// itself would end the process when it finds none, so this is asked before there is an application
/// object. QT_QPA_PLATFORM is respected: of the platforms named in it one must work.
Display probeDisplay();

/// Whether there is a display at all.
bool hasDisplay();

} // namespace quillbox
