#pragma once

#include <QLineEdit>
#include <QString>
#include <functional>

namespace quillbox {

/// A text field that reports when an edit of it has ended: after a change, when another control of
/// the window gets the focus, and on Return, even without a change. Passing through the field,
/// going to another window or opening the field's menu ends no edit.
///
/// Escape ends an edit without a report and restores the text from before it. If there is nothing
/// to restore, the key goes on to the window.
class EditField final : public QLineEdit {
public:
    EditField();

    /// Sets a text that nobody has typed, which is no edit. (`setText` is one, because assistive
    /// technologies enter texts with it.)
    void fill(const QString& text);

    std::function<void()> editEnded; ///< may be empty

private:
    void keyPressEvent(QKeyEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void endEdit();

    bool isEdited = false;
    QString before; ///< the text before the edit
};

} // namespace quillbox
