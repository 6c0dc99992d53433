#pragma once

#include <QIcon>

class QWidget;

namespace quillbox {

/// The top of the window: the icon, left out where there is none, the title and a line of credit.
/// Whoever puts it into a layout owns it.
QWidget* makeHeader(const QIcon& icon);

} // namespace quillbox
