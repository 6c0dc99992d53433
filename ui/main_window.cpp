#include "app/app_delegate.h"
#include "ui/icons.h"

#include <QEvent>
#include <QFocusEvent>
#include <QVBoxLayout>

namespace quillbox {

namespace {

/// Whether the user left the field, and not merely the window or for the field's own menu.
bool endsEditing(const QEvent& event)
{
    if (event.type() != QEvent::FocusOut)
        return false;
    const Qt::FocusReason reason = static_cast<const QFocusEvent&>(event).reason();
    return reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason;
}

} // namespace

void AppDelegate::buildWindow()
{
    window = std::make_unique<QWidget>();
    window->setWindowTitle(QStringLiteral("Quillbox Helper"));
    window->setWindowIcon(Icons::application());
    // Closing only hides the window.
    window->installEventFilter(this);

    auto* layout = new QVBoxLayout(window.get());
    layout->addWidget(&showInFinder);
    layout->addWidget(&statusDot);
    layout->addWidget(&statusLabel);
    layout->addWidget(&deviceListStack);
    layout->addWidget(&advancedButton);
    advancedForm = buildAdvancedForm();
    layout->addWidget(advancedForm);

    statusLabel.setWordWrap(true);
    new QVBoxLayout(&deviceListStack);
    deviceListStack.hide();
    advancedForm->hide();

    connect(&showInFinder, &QCheckBox::clicked, this, &AppDelegate::toggleFinderVisibility);
    connect(&advancedButton, &QPushButton::clicked, this, &AppDelegate::toggleAdvanced);
    // The toolkit sizes a window when it shows it; whoever places it before that needs its size.
    window->adjustSize();
}

void AppDelegate::toggleAdvanced()
{
    advancedVisible = !advancedVisible;
    advancedForm->setVisible(advancedVisible);
    advancedButton.setText(advancedVisible ? QStringLiteral("Advanced ▾")
                                           : QStringLiteral("Advanced ▸"));
    updateWindowHeight();
}

void AppDelegate::updateWindowHeight()
{
    window->adjustSize();
}

bool AppDelegate::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == window.get() && event->type() == QEvent::Close) {
        const bool isClosing = windowShouldClose(*window);
        event->setAccepted(isClosing);
        return !isClosing;
    }
    if ((watched == &hostField || watched == &portField) && endsEditing(*event))
        controlTextDidEndEditing();
    return QObject::eventFilter(watched, event);
}

} // namespace quillbox
