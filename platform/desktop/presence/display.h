#pragma once

namespace quillbox {

enum class Display {
    Any,     ///< the platform that Qt chooses by itself works
    Wayland, ///< only Wayland works, and Qt must be told to use it
    None,
};

/// Whether this process can show windows: connects to the display and disconnects again. Call it
/// before constructing the application object, because Qt aborts the process if it finds no
/// display. QT_QPA_PLATFORM is respected: at least one of the platforms that it names must work.
Display probeDisplay();

} // namespace quillbox
