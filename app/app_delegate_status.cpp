#include "app/app_delegate.h"
#include "platform/values/standard_error.h"
#include "ui/look/brand.h"
#include "ui/look/icons.h"
#include "ui/shown_text.h"

#include <QAccessible>
#include <QKeySequence>
#include <QPalette>

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

void AppDelegate::setStatus(const StatusReport& report)
{
    printToStandardError((report.ready ? "status: ready: " : "status: not ready: ") + report.text);

    lastReport = report;
    const QString text = shownText(report.text);
    QPalette palette = statusDot.palette();
    palette.setColor(QPalette::WindowText, report.ready ? Brand::green : Brand::slate);
    statusDot.setPalette(palette);
    statusDot.setAccessibleName(report.ready ? QStringLiteral("Finder service on")
                                             : QStringLiteral("Finder service off"));
    announce(text);
    showFinderHint();
    if (menuStatusItem)
        menuStatusItem->setText(report.ready ? QStringLiteral("Finder: visible")
                                             : QStringLiteral("Finder: off"));
    if (statusItem)
        statusItem->setToolTip(QStringLiteral("Quillbox Helper — ")
                               + (report.ready ? QStringLiteral("Finder service visible") : text));
}

/// The status says that phones are visible, because they are advertised. Explains in the tool tip
/// of the status box why file managers list none all the same.
void AppDelegate::showFinderHint()
{
    const std::string hint = finderHint();
    if (QWidget* box = statusLabel.parentWidget())
        box->setToolTip(shownInToolTip(hint));
    statusLabel.setAccessibleDescription(shownText(hint));
}

/// Shows a status and has screen readers announce it: they announce notifications when these
/// appear, but read labels only when the user navigates to them.
void AppDelegate::announce(const QString& status)
{
    if (status == statusLabel.text())
        return;
    statusLabel.setText(status);
    statusLabel.setAccessibleName(status);
    if (!statusLabel.isVisible())
        return;
    QAccessibleEvent appearance(&statusLabel, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&appearance);
}

} // namespace quillbox
