#pragma once

#include <QMenu>
#include <QString>

namespace quillbox {

/// The helper's place in the desktop's status bar. Its menu and tool tip exist from the start,
/// whether or not the desktop has a status bar to show them in.
class StatusItem final {
public:
    StatusItem() = default;
    StatusItem(const StatusItem&) = delete;
    StatusItem& operator=(const StatusItem&) = delete;
    ~StatusItem() = default;

    QMenu menu;
    QString toolTip;
};

} // namespace quillbox
