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

/// Once made, the toolkit's item follows its tray or its panel by itself, through restarts as well.
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

/// The toolkit opens the menu at a click of the second button only. At one of the first it is
/// opened here, which only X allows: elsewhere a program cannot tell where the pointer is, nor open
/// a menu that belongs to no window of its own.
void StatusBarItem::clicked(QSystemTrayIcon::ActivationReason reason)
{
    if (reason == QSystemTrayIcon::Trigger
        && QGuiApplication::platformName() == QStringLiteral("xcb"))
        itemMenu.popup(QCursor::pos());
}

} // namespace quillbox
