#pragma once

#include "platform/desktop/opening/folder_showing.h"
#include "platform/service_locator.h"
#include "platform/workspace.h"

#include <chrono>
#include <memory>
#include <string>

namespace quillbox {

/// Opens smb URLs in the file browser of the desktop (see showFolder()).
///
/// If the host is the name of a DNS-SD service (`NAME._smb._tcp.local`), the URL is opened at the
/// host and port of that service, because no Linux file browser resolves such a name. If the
/// service is not found in time, the URL is opened unchanged.
class SmbOpener {
public:
    using Opened = Workspace::Opened;

    /// Cancels what is still being opened.
    virtual ~SmbOpener() = default;

    /// Returns at once. `url` is an encoded smb URL without a port; only its host is looked at.
    /// `token` is an activation token for the file manager; may be empty.
    ///
    /// A request joins an earlier one for the same URL, whose result it shares, until a file
    /// manager has had a moment to show its window (SmbOpenerTimes::moment): a user who clicks
    /// twice because nothing has appeared yet wants one window. Later it opens the URL again,
    /// whether or not the earlier request has ended, because a file manager that hangs must not
    /// swallow clicks.
    virtual void open(const std::string& url, const std::string& token, Opened opened) = 0;
};

struct SmbOpenerTimes {
    std::chrono::milliseconds location{6000};
    /// File managers were seen to take up to 1.1 seconds, and impatient users longer than that.
    std::chrono::milliseconds moment{2000};
};

/// Locator and means must outlive the opener.
std::unique_ptr<SmbOpener> makeSmbOpener(ServiceLocator& locator, const FileBrowserMeans& means,
                                         const SmbOpenerTimes& times = {});

} // namespace quillbox
