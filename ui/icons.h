#pragma once

#include <QIcon>

/// The helper's artwork, rendered for each requested size and scale.
///
/// On the main thread, while the application object exists.
namespace quillbox::Icons {

/// For windows, and for the header of the main window.
QIcon application();

/// For the status bar: in one colour that is visible on light and dark panels, because desktops
/// neither report the colour of the panel nor tint the images that they receive.
QIcon status();

} // namespace quillbox::Icons
