#include "app/app_delegate.h"
#include "app/smb_url.h"

namespace quillbox {

void AppDelegate::openInFinder(const std::string& permission)
{
    openShare(nullptr, permission, {});
}

/// Opens the share of `phone`, or of the only phone if `phone` is null. Returns nullopt if the
/// workspace opens the share, and then reports to `opened`; else the reason why not, which is also
/// shown in the window.
std::optional<StatusReport> AppDelegate::openShare(const std::string* phone,
                                                   const std::string& permission,
                                                   const Workspace::Opened& opened)
{
    const std::string share = trimmed(shareField.text().toStdString());
    const std::string user = trimmed(userField.text().toStdString());
    const bool isAutomatic = automaticDiscovery.isChecked();
    const auto refuse = [this](const StatusReport& reason) {
        setStatus(reason);
        return reason;
    };
    const auto refuseLoudly = [this, &refuse](const StatusReport& reason) {
        refuse(reason);
        environment.workspace.beep();
        return reason;
    };
    if (share.empty())
        return refuseLoudly({.ready = false, .text = "Enter a share name under Advanced"});
    if (!showInFinder.isChecked())
        return refuse({.ready = false, .text = "Turn on Show Quillbox in Finder first"});
    if (!phone && isAutomatic && discoveredDevices.empty())
        return refuseLoudly({.ready = false, .text = "No Quillbox device is available yet"});
    // Not an error: the user only has to choose a phone in the file browser.
    if (!phone && isAutomatic && discoveredDevices.size() > 1)
        return refuseLoudly({.ready = true, .text = "Choose a Quillbox device directly in Finder"});

    const std::string only =
        isAutomatic && !phone ? discoveredDevices.front().name : std::string(kManualFinderName);
    const std::string& finderName = phone ? *phone : only;
    const std::string service = finderName + '.' + kSmbServiceType + ".local";
    const auto url = smbUrl({.user = user, .host = service, .share = share});
    if (!url)
        return refuse({.ready = false, .text = "Check the connection fields"});
    // Saves the host and the port without further checks: only a relay needs usable ones.
    if (const auto port = parsePort(portField.text().toStdString()))
        saveFields(trimmed(hostField.text().toStdString()), *port);
    environment.workspace.open(*url, permission, opened);
    return std::nullopt;
}

} // namespace quillbox
