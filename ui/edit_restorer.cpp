#include "ui/edit_restorer.h"

#include <QEvent>
#include <QKeyEvent>
#include <QLineEdit>

namespace quillbox {

EditRestorer::EditRestorer(QLineEdit& editedField)
    : QObject(&editedField), field(editedField), before(editedField.text())
{
    field.installEventFilter(this);
    connect(&field, &QLineEdit::returnPressed, this, [this] { before = field.text(); });
}

bool EditRestorer::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::FocusIn) {
        const Qt::FocusReason reason = static_cast<QFocusEvent*>(event)->reason();
        // The edit continues if the focus returns from another window or from the field's menu.
        if (reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason)
            before = field.text();
    }
    if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape
        && restore())
        return true;
    return QObject::eventFilter(watched, event);
}

bool EditRestorer::restore()
{
    if (field.text() == before)
        return false;
    field.setText(before);
    field.selectAll();
    return true;
}

} // namespace quillbox
