#pragma once

#include <QAccessible>

class QAbstractButton;
class QWidget;

namespace quillbox {

/// Exposes a widget to assistive technologies under that role:
/// - The main action of a button is a click, as by the user. (Qt's action of a check box changes
///   the state without a click, as the program does when it sets the state.)
/// - The children of a list are its list items; other widgets in it are not exposed.
void setAccessibleRole(QWidget& widget, QAccessible::Role role);

/// Exposes that a button with such a role shows and hides something, and whether it is shown now.
/// Announces each change.
void setAccessibleExpanded(QAbstractButton& button, bool isExpanded);

} // namespace quillbox
