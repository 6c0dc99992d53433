#include "ui/status_bar_item.h"

#include "ui/display_text.h"

#include <QCursor>
#include <QGuiApplication>
#include <utility>

namespace quillbox {

StatusBarItem::StatusBarItem(StatusHost& statusHost, QIcon itemIcon)
    : host(statusHost), icon(std::move(itemIcon))
{
    host.setChangedHandler([this] { hostChanged(); });
    showIfPossible();
}

StatusBarItem::~StatusBarItem()
{
    host.setChangedHandler(nullptr);
}

void StatusBarItem::setToolTip(const QString& toolTip)
{
    text = toolTip;
    if (shownItem)
        shownItem->setToolTip(DisplayText::forToolTip(text.toStdString()));
}

void StatusBarItem::hostChanged()
{
    showIfPossible();
    if (shownChanged)
        shownChanged();
}

/// Creates the QSystemTrayIcon only once: it follows its tray or panel by itself, also when that
/// restarts.
void StatusBarItem::showIfPossible()
{
    if (shownItem || !host.isAvailable())
        return;
    shownItem = std::make_unique<QSystemTrayIcon>(icon);
    shownItem->setContextMenu(&itemMenu);
    setToolTip(text);
    QObject::connect(shownItem.get(), &QSystemTrayIcon::activated, shownItem.get(),
                     [this](QSystemTrayIcon::ActivationReason reason) { clicked(reason); });
    shownItem->show();
}

/// Qt opens the menu at a right click only. At a left click it is opened here, which only X allows:
/// on Wayland a client knows neither the position of the pointer nor can it open a menu that
/// belongs to none of its windows.
void StatusBarItem::clicked(QSystemTrayIcon::ActivationReason reason)
{
    if (reason == QSystemTrayIcon::Trigger
        && QGuiApplication::platformName() == QStringLiteral("xcb"))
        itemMenu.popup(QCursor::pos());
}

} // namespace quillbox
