#include "app/app_delegate.h"

#include <QKeyEvent>
#include <QList>
#include <QPushButton>
#include <QShortcut>

namespace quillbox {

/// The window is a small companion of the status item, and answers to the keyboard like the dialogs
/// and windows of the desktop: Escape and Ctrl+W put it away, which stops nothing, Ctrl+Q quits,
/// and Return presses the button that has the focus.
void AppDelegate::buildKeyboard()
{
    const auto shortcut = [this](Qt::Key key) {
        return new QShortcut(QKeySequence(Qt::CTRL | key), window.get());
    };
    connect(shortcut(Qt::Key_W), &QShortcut::activated, window.get(), &QWidget::close);
    connect(shortcut(Qt::Key_Q), &QShortcut::activated, this, &AppDelegate::quit);

    QList<QWidget*> order{&showInFinder};
    const auto buttons = window->findChildren<QPushButton*>();
    // Widgets are found in the order in which they were put into the window, top to bottom, but for
    // those in the form.
    for (QPushButton* button : buttons) {
        if (!advancedForm->isAncestorOf(button))
            order.append(button);
    }
    order.append({&automaticDiscovery, &hostField, &portField, &shareField, &userField});
    for (QPushButton* button : buttons) {
        if (advancedForm->isAncestorOf(button))
            order.append(button);
    }
    for (qsizetype place = 1; place < order.size(); ++place)
        QWidget::setTabOrder(order[place - 1], order[place]);
}

/// Keys arrive here that no control has a use for. (The toolkit lets Return press a button in
/// dialogs only, and there one is always marked as the button that it presses.)
bool AppDelegate::handleKey(const QEvent& event)
{
    const auto& key = static_cast<const QKeyEvent&>(event);
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
