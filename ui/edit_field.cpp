#include "ui/edit_field.h"

#include <QFocusEvent>
#include <QKeyEvent>

namespace quillbox {

EditField::EditField()
{
    connect(this, &QLineEdit::textChanged, this, [this] { isEdited = true; });
}

void EditField::fill(const QString& text)
{
    setText(text);
    before = text;
    isEdited = false;
}

void EditField::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Escape:
        if (text() == before)
            break;
        fill(before);
        selectAll();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        // A key that is held down ends an edit only once.
        if (!event->isAutoRepeat())
            endEdit();
        break;
    default:
        break;
    }
    QLineEdit::keyPressEvent(event);
}

/// Qt's editingFinished is not used, because it is also emitted when the window loses the focus.
void EditField::focusOutEvent(QFocusEvent* event)
{
    QLineEdit::focusOutEvent(event);
    const Qt::FocusReason reason = event->reason();
    if (isEdited && reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason)
        endEdit();
}

void EditField::endEdit()
{
    before = text();
    isEdited = false;
    if (editEnded)
        editEnded();
}

} // namespace quillbox
