#pragma once

#include <QAccessible>

class QWidget;

namespace quillbox {

/// Sets the role that a widget has for assistive technologies. Call it before any of them has
/// queried the widget. They read the widget by its accessible name, and its children as its parts.
void setAccessibleRole(QWidget& widget, QAccessible::Role role);

} // namespace quillbox
