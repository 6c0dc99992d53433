#include "ui/status_bar_item.h"

#include "ui/shown_text.h"

#include <QAction>
#include <QCursor>
#include <QKeyEvent>
#include <QKeySequence>
#include <utility>

namespace quillbox {

namespace {

/// Qt does not deliver shortcuts while a popup is open, not even those of the popup's own entries.
class ItemMenu final : public QMenu {
private:
    void keyPressEvent(QKeyEvent* event) override
    {
        const QKeySequence pressed(event->keyCombination());
        for (QAction* action : actions()) {
            if (action->isEnabled() && action->shortcut() == pressed) {
                close();
                action->trigger();
                return;
            }
        }
        QMenu::keyPressEvent(event);
    }
};

} // namespace

StatusBarItem::StatusBarItem(StatusHost& statusHost, QIcon itemIcon)
    : host(statusHost), icon(std::move(itemIcon)), itemMenu(std::make_unique<ItemMenu>())
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
        shownItem->setToolTip(shownInToolTip(text.toStdString()));
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
    shownItem->setContextMenu(itemMenu.get());
    setToolTip(text);
    QObject::connect(shownItem.get(), &QSystemTrayIcon::activated, shownItem.get(),
                     [this](QSystemTrayIcon::ActivationReason reason) { activated(reason); });
    shownItem->show();
}

void StatusBarItem::openMenu()
{
    itemMenu->popup(QCursor::pos());
}

/// A panel that does not open the menu itself reports a left click, a right click, or both. In a
/// tray, Qt has opened the menu when it reports a right click.
void StatusBarItem::activated(QSystemTrayIcon::ActivationReason reason)
{
    const bool isClick = reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::Context;
    if (isClick && !itemMenu->isVisible() && clicked)
        clicked();
}

} // namespace quillbox
