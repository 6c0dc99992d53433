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
/// If the host is the name of a DNS-SD service (`NAME._smb._tcp.local`), the URL is opened at the
/// host and port of that service, because no Linux file browser resolves such a name. If the
/// service is not found in time, the URL is opened unchanged.
///
/// Tries in turn, until one succeeds: the file manager on the session bus; the user's default
/// program for folders; mounting the share and opening it. None of these blocks.
class SmbOpener {
public:
    /// Cancels what is still being opened.
    virtual ~SmbOpener() = default;

    /// Returns at once. Rejects a URL that parseSmbUrl() does not accept. Ignores a URL that is
    /// still being opened: a user who clicks twice because nothing has appeared yet wants one
    /// window.
    virtual void open(const std::string& url) = 0;
};

struct SmbOpenerTimes {
    std::chrono::milliseconds location{6000};
    /// A file manager may have to be started first.
    std::chrono::milliseconds fileManager{15000};
    std::chrono::milliseconds program{20000};
};

/// Locator and log must outlive the opener. Programs that it starts run with `limits`.
std::unique_ptr<SmbOpener> makeSmbOpener(ServiceLocator& locator, const QDBusConnection& sessionBus,
                                         const InheritedLimits& limits, Log& log,
                                         const SmbOpenerTimes& times = {});

} // namespace quillbox
