#pragma once

#include <QAccessible>

class QWidget;

namespace quillbox {

/// Has assistive programs take a widget, which nobody has asked about so far, for something else.
/// It is read by its accessible name, and its children as its parts.
void setAccessibleRole(QWidget& widget, QAccessible::Role role);

} // namespace quillbox
