#pragma once

#include <QDBusConnection>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace quillbox {

/// Tells the user that something went wrong which the window does not show. Main thread only.
class Notice {
public:
    virtual ~Notice() = default;

    /// Shows plain text; replaces the notice before. Returns at once.
    virtual void show(const std::string& title, const std::string& text) = 0;
};

/// A small window with the text and a button.
std::unique_ptr<Notice> makeNoticeWindow();

/// A notification of the desktop (Desktop Notifications Specification of freedesktop.org). Where no
/// notification service answers within the limit, shows the notice with `substitute`, which must
/// outlive this object.
std::unique_ptr<Notice> makeNotification(const QDBusConnection& sessionBus, Notice& substitute,
                                         std::chrono::milliseconds limit = std::chrono::seconds(3));

} // namespace quillbox
