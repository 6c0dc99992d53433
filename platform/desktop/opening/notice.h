#pragma once

#include "platform/notice.h"

#include <QDBusConnection>
#include <chrono>
#include <memory>

namespace quillbox {

/// A small window with the text and a button.
std::unique_ptr<Notice> makeNoticeWindow();

/// A notification of the desktop (Desktop Notifications Specification of freedesktop.org). Where no
/// notification service answers within the limit, shows the notice with `substitute`, which must
/// outlive this object.
std::unique_ptr<Notice> makeNotification(const QDBusConnection& sessionBus, Notice& substitute,
                                         std::chrono::milliseconds limit = std::chrono::seconds(3));

} // namespace quillbox
