#pragma once

#include "platform/status_host.h"

#include <QIcon>
#include <QMenu>
#include <QString>
#include <QSystemTrayIcon>
#include <functional>
#include <memory>

namespace quillbox {

/// The helper's item in the desktop's status bar. Its menu, icon and tool tip exist from the start.
/// It is shown as soon as the desktop has a host for it, and again when that host disappears and
/// returns. The QSystemTrayIcon is not created before: created too early, it would never be shown.
///
/// Main thread only.
class StatusBarItem final {
public:
    /// The item sets the changed handler of `statusHost`, which must outlive the item.
    StatusBarItem(StatusHost& statusHost, QIcon itemIcon);

    StatusBarItem(const StatusBarItem&) = delete;
    StatusBarItem& operator=(const StatusBarItem&) = delete;
    ~StatusBarItem();

    /// The item's menu. Its shortcuts work while it is open. If the desktop draws it, "_" in titles
    /// is not shown.
    QMenu& menu() { return *itemMenu; }

    /// Opens the menu at the pointer.
    void openMenu();

    QString toolTip() const { return text; }

    /// Plain text, which may contain text from the network.
    void setToolTip(const QString& toolTip);

    /// Whether the desktop has a host for the item, and hence shows it.
    bool isShown() const { return shownItem && host.isAvailable(); }

    /// Called at a click on the item, unless the desktop opens the menu by itself.
    std::function<void()> clicked;

    /// Called whenever `isShown` changes.
    std::function<void()> shownChanged;

private:
    void hostChanged();
    void showIfPossible();
    void activated(QSystemTrayIcon::ActivationReason reason);

    StatusHost& host;
    const QIcon icon;
    const std::unique_ptr<QMenu> itemMenu;
    QString text;
    std::unique_ptr<QSystemTrayIcon> shownItem; ///< null until there is a host for it
};

} // namespace quillbox
