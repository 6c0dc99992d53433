#include "app/app_delegate.h"

#include <QKeyEvent>
#include <QList>
#include <QPushButton>
#include <QShortcut>

namespace quillbox {

/// Sets up the shortcuts and the tab order. The window handles keys like the desktop's windows and
/// dialogs: Escape and Ctrl+W close it, which only hides it, Ctrl+Q quits, and Return presses the
/// focused button.
void AppDelegate::buildKeyboard()
{
    const auto shortcut = [this](Qt::Key key) {
        return new QShortcut(QKeySequence(Qt::CTRL | key), window.get());
    };
    connect(shortcut(Qt::Key_W), &QShortcut::activated, window.get(), &QWidget::close);
    connect(shortcut(Qt::Key_Q), &QShortcut::activated, this, &AppDelegate::quit);

    QList<QWidget*> order{&showInFinder, managementButton, &advancedButton, &automaticDiscovery,
                          &hostField,    &portField,       &shareField,     &userField};
    for (QPushButton* button : advancedForm->findChildren<QPushButton*>())
        order.append(button);
    for (qsizetype place = 1; place < order.size(); ++place)
        QWidget::setTabOrder(order[place - 1], order[place]);
}

/// Handles keys that no control has handled. (In Qt Return presses a button only in dialogs, which
/// always mark one button as the default.)
bool AppDelegate::handleKey(const QEvent& event)
{
    const auto& key = static_cast<const QKeyEvent&>(event);
    // A key that is held down acts once, as Space does on a button.
    if (key.isAutoRepeat())
        return false;
    switch (key.key()) {
    case Qt::Key_Escape:
        window->close();
        return true;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (auto* button = qobject_cast<QPushButton*>(window->focusWidget())) {
            button->click();
            return true;
        }
        return false;
    default:
        return false;
    }
}

} // namespace quillbox
