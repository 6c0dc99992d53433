#pragma once

#include <QIcon>

/// The helper's own artwork, drawn anew for each size and scale that is asked for.
///
/// The application object exists, and these are called on the main thread.
namespace quillbox::Icons {

/// For windows and the header of the main one.
QIcon application();

/// For the status bar: one colour, which stands out against light panels as well as dark ones, for
/// no desktop tells which it has, nor tints the pictures that it is sent.
QIcon status();

} // namespace quillbox::Icons
