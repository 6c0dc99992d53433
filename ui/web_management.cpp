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

/// The one child of `parent` of that kind that is on the screen; one that was closed may still wait
/// for its deletion.
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
    // A desktop's theme would translate a standard button, and give it a mnemonic.
    QPushButton* close = alert->addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
    alert->setDefaultButton(close);
    alert->setEscapeButton(close);
    // The toolkit has no other way to its labels.
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
    // Asked for in the status menu, it would be the sheet of a window that nobody sees.
    bringWindowForward();
    if (auto* shown = shownChild<QMessageBox>(*window)) {
        shown->raise();
        shown->activateWindow();
        return;
    }
    // Unlike exec(), this starts no second event loop.
    makeAlert(*window)->open();
}

void AppDelegate::popUpManagementMenu()
{
    if (auto* shown = shownChild<QMenu>(*window))
        shown->close();
    auto* menu = new QMenu(window.get());
    // An item that was chosen is told after the menu has hidden.
    connect(menu, &QMenu::aboutToHide, menu, &QObject::deleteLater);
    for (const DiscoveredDevice& device : managementDevices) {
        QAction* item = menu->addAction(DisplayText::forMenu(device.name));
        item->setData(QByteArray::fromStdString(device.name));
        connect(item, &QAction::triggered, this, [this, item] { openManagementMenu(*item); });
    }
    menu->popup(QCursor::pos());
}

} // namespace quillbox
