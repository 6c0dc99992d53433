#include "app/app_delegate.h"
#include "ui/icons.h"

#include <QKeySequence>

namespace quillbox {

void AppDelegate::buildStatusItem()
{
    statusItem = std::make_unique<StatusBarItem>(environment.statusHost, Icons::status());
    statusItem->clicked = [this] { statusItemClicked(); };
    statusItem->shownChanged = [this] { updateTaskbar(); };
    statusItem->setToolTip(QStringLiteral("Quillbox Helper — Finder service off"));

    QMenu& menu = statusItem->menu();
    menu.addAction(QStringLiteral("Quillbox Helper"))->setEnabled(false);
    menuStatusItem = menu.addAction(QStringLiteral("Finder: off"));
    menuStatusItem->setEnabled(false);
    menu.addSeparator();
    menu.addAction(QStringLiteral("Show Quillbox Helper"), this, &AppDelegate::showFromPanel);
    menu.addAction(QStringLiteral("Restart Finder service"), this, &AppDelegate::restartFromMenu);
    menu.addAction(QStringLiteral("Open in Finder"), this,
                   [this] { openInFinder(environment.windowPresence.takePermissionOfPanel()); });
    menu.addAction(QStringLiteral("Open web management"), this,
                   [this] { openManagement(environment.windowPresence.takePermissionOfPanel()); });
    menu.addSeparator();
    menu.addAction(QStringLiteral("Quit Quillbox Helper"), this, &AppDelegate::quit)
        ->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
}

/// On Wayland no menu can be opened over the panel: the window has the same commands.
void AppDelegate::statusItemClicked()
{
    if (environment.windowPresence.canOpenMenuAnywhere())
        statusItem->openMenu();
    else
        showFromPanel();
}

void AppDelegate::showFromPanel()
{
    showHelper(environment.windowPresence.takePermissionOfPanel());
}

} // namespace quillbox
