#pragma once

#include "platform/desktop/process.h"
#include "platform/log.h"
#include "platform/service_locator.h"

#include <QDBusConnection>
#include <chrono>
#include <memory>
#include <string>

namespace quillbox {

/// Opens smb URLs in the file browser of the desktop.
///
/// A URL whose host is the name of an announced service (`NAME._smb._tcp.local`) is opened at the
/// host and port where the service is: no file browser of Linux resolves such a name. It stays as
/// it is when the service is not found in time.
///
/// Then the first way that works is taken: the file manager on the session bus; the user's program
/// for folders; mounting the share and opening what was mounted. None of it waits.
class SmbOpener {
public:
    /// Gives up what is still on its way.
    virtual ~SmbOpener() = default;

    /// Returns at once. Anything but an smb URL of a strict form is refused. A URL that is still on
    /// its way is not opened once more: who clicks twice, for nothing is seen yet, wants one
    /// window.
    virtual void open(const std::string& url) = 0;
};

struct SmbOpenerTimes {
    std::chrono::milliseconds location{6000};
    /// A file manager may have to be started first.
    std::chrono::milliseconds fileManager{15000};
    std::chrono::milliseconds program{20000};
};

/// Locator and log outlive the opener. The programs that are started get `limits` back.
std::unique_ptr<SmbOpener> makeSmbOpener(ServiceLocator& locator, const QDBusConnection& sessionBus,
                                         const InheritedLimits& limits, Log& log,
                                         const SmbOpenerTimes& times = {});

} // namespace quillbox
