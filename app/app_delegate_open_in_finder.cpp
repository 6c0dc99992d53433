#include "app/app_delegate.h"
#include "app/port_text.h"
#include "app/smb_url.h"

namespace quillbox {

namespace {

/// What follows the instance name in the DNS-SD name of a service that a relay advertises.
constexpr const char* kServiceSuffix = "._smb._tcp.local";

} // namespace

void AppDelegate::openInFinder()
{
    const std::string share = trimmed(shareField.text().toStdString());
    const std::string user = trimmed(userField.text().toStdString());
    if (share.empty()) {
        refuseToOpen({.ready = false, .text = "Enter a share name under Advanced"});
        return;
    }
    if (!showInFinder.isChecked()) {
        setStatus({.ready = false, .text = "Turn on Show Quillbox in Finder first"});
        return;
    }
    if (automaticDiscovery.isChecked() && discoveredDevices.empty()) {
        refuseToOpen({.ready = false, .text = "No Quillbox device is available yet"});
        return;
    }
    if (automaticDiscovery.isChecked() && discoveredDevices.size() > 1) {
        // Nothing is wrong here: the user only has to choose elsewhere.
        refuseToOpen({.ready = true, .text = "Choose a Quillbox device directly in Finder"});
        return;
    }
    const std::string finderName =
        automaticDiscovery.isChecked() ? discoveredDevices.front().name : kManualFinderName;
    const auto url = smbUrl({.user = user, .host = finderName + kServiceSuffix, .share = share});
    if (!url) {
        setStatus({.ready = false, .text = "Check the connection fields"});
        return;
    }
    // What was typed is kept as it is: only a relay needs a host and a port that can be used.
    if (const auto port = parsePort(portField.text().toStdString()))
        saveFields(trimmed(hostField.text().toStdString()), *port);
    environment.workspace.open(*url);
}

void AppDelegate::refuseToOpen(const StatusReport& reason)
{
    setStatus(reason);
    environment.workspace.beep();
}

} // namespace quillbox
