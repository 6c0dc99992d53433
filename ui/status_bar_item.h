#pragma once

#include "platform/status_host.h"

#include <QIcon>
#include <QMenu>
#include <QString>
#include <QSystemTrayIcon>
#include <functional>
#include <memory>

namespace quillbox {

/// The helper's place in the desktop's status bar. Its menu, icon and tool tip exist from the
/// start. It is shown as soon as the desktop has a place for it, and again when that place goes and
/// comes back. The toolkit's own item is not made before: made too early, it would never be shown.
///
/// Belongs to the main thread.
class StatusBarItem final {
public:
    /// The item takes the changed handler of `statusHost`, which outlives it.
    StatusBarItem(StatusHost& statusHost, QIcon itemIcon);

    StatusBarItem(const StatusBarItem&) = delete;
    StatusBarItem& operator=(const StatusBarItem&) = delete;
    ~StatusBarItem();

    /// What a click on the item opens. The desktop may draw it: entries with an "_" in their titles
    /// are shown without it there.
    QMenu& menu() { return itemMenu; }

    QString toolTip() const { return text; }

    /// Plain text, some of which may come from the network.
    void setToolTip(const QString& toolTip);

    /// Whether the desktop has a place for the item, and so shows it.
    bool isShown() const { return host.isAvailable(); }

    /// Called at each change of `isShown`.
    std::function<void()> shownChanged;

private:
    void hostChanged();
    void showIfPossible();
    void clicked(QSystemTrayIcon::ActivationReason reason);

    StatusHost& host;
    const QIcon icon;
    QMenu itemMenu;
    QString text;
    std::unique_ptr<QSystemTrayIcon> shownItem; ///< none before there is a place for it
};

} // namespace quillbox
