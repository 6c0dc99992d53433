#pragma once

#include <QIcon>

/// The helper's artwork, rendered for each requested size and scale.
///
/// On the main thread, while the application object exists.
namespace quillbox::Icons {

/// For windows, and for the header of the main window.
QIcon application();

/// For the status bar. Its name is that of the symbolic icon, if that is installed: panels tint
/// that one to match their own colour. They cannot tint an image, nor does the desktop report the
/// colour of the panel, so the image has a background of its own.
QIcon status();

} // namespace quillbox::Icons
