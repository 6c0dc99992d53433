#include "app/app_delegate.h"
#include "ui/display_text.h"

#include <QCursor>
#include <QFont>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>

namespace quillbox {

namespace {

constexpr int kAlertIconSize = 48;

/// The visible child of `parent` of that type, or null. Skips a closed one that has not been
/// deleted yet.
template <class Child> Child* shownChild(const QWidget& parent)
{
    for (Child* child : parent.findChildren<Child*>(Qt::FindDirectChildrenOnly)) {
        if (child->isVisible())
            return child;
    }
    return nullptr;
}

QMessageBox* makeAlert(QWidget& window)
{
    auto* alert = new QMessageBox(&window);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setPalette(window.palette());
    alert->setIconPixmap(window.windowIcon().pixmap(kAlertIconSize));
    alert->setText(QStringLiteral("Enable web management on your phone"));
    alert->setInformativeText(
        QStringLiteral("In Quillbox, open Users and turn on Enable web management for your SMB "
                       "account. Start NAS, then return here."));
    // Not a standard button: the desktop's theme would translate it and give it a mnemonic.
    QPushButton* close = alert->addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
    alert->setDefaultButton(close);
    alert->setEscapeButton(close);
    // QMessageBox provides no other access to its labels.
    for (auto* label : alert->findChildren<QLabel*>()) {
        label->setTextFormat(Qt::PlainText);
        if (label->text() != alert->text())
            continue;
        QFont font = label->font();
        font.setWeight(QFont::DemiBold);
        label->setFont(font);
    }
    return alert;
}

} // namespace

void AppDelegate::explainWebManagement()
{
    // When it is opened from the status menu, the window that it belongs to may be hidden.
    bringWindowForward();
    if (auto* shown = shownChild<QMessageBox>(*window)) {
        shown->raise();
        shown->activateWindow();
        return;
    }
    // Unlike exec(), this starts no nested event loop.
    makeAlert(*window)->open();
}

void AppDelegate::popUpManagementMenu()
{
    if (auto* shown = shownChild<QMenu>(*window))
        shown->close();
    auto* menu = new QMenu(window.get());
    // Deleted later, because the chosen item is triggered after the menu has been hidden.
    connect(menu, &QMenu::aboutToHide, menu, &QObject::deleteLater);
    for (const DiscoveredDevice& device : managementDevices) {
        QAction* item = menu->addAction(DisplayText::forMenu(device.name));
        item->setData(QByteArray::fromStdString(device.name));
        connect(item, &QAction::triggered, this, [this, item] { openManagementMenu(*item); });
    }
    menu->popup(QCursor::pos());
}

} // namespace quillbox
