#pragma once

#include <QIcon>

class QWidget;

namespace quillbox {

/// The top of the window: the icon, unless it is null, the title and a subtitle. It has no parent
/// until it is added to a layout.
QWidget* makeHeader(const QIcon& icon);

} // namespace quillbox
