#include "app/doctor_checks.h"

namespace quillbox::doctor {

namespace {

constexpr const char* kFileBrowser = "file-browser";
constexpr const char* kNames = "host-names";
constexpr const char* kStatusIcon = "status-icon";

} // namespace

Findings checkFileBrowser(const SystemFacts& system)
{
    const auto& browser = system.fileBrowser;
    if (browser.hasGvfs && browser.hasKio)
        return {ok(kFileBrowser, "GVfs and KIO can open SMB shares.")};
    if (browser.hasGvfs)
        return {ok(kFileBrowser, "GVfs can open SMB shares.")};
    if (browser.hasKio)
        return {ok(kFileBrowser, "KIO can open SMB shares.")};
    const std::string text = "No file browser here can open SMB shares.";
    const std::string advice = "GNOME, Xfce, Cinnamon, MATE: 'sudo apt install gvfs-backends'; "
                               "KDE: 'sudo apt install kio-extras'.";
    if (system.statusHost.hasDesktop)
        return {fail(kFileBrowser, text, advice)};
    return {warn(kFileBrowser, text, advice)};
}

Findings checkNames(const SystemFacts& system)
{
    const NameFacts& names = system.names;
    if (!names.asksMulticastDns)
        return {warn(kNames,
                     "Names that end in .local are not looked up by multicast DNS, so some file "
                     "browsers mix up two phones.",
                     "'sudo apt install libnss-mdns' puts 'mdns4_minimal [NOTFOUND=return]' into "
                     "the line 'hosts:' of /etc/nsswitch.conf; put it there, in front of 'dns', "
                     "where it is missing.")};
    switch (names.isResolved) {
    case Seen::Yes:
        return {ok(kNames, names.askedName + " is found by multicast DNS.")};
    case Seen::No:
        return {warn(kNames, names.askedName + " is not found by its name.",
                     "'sudo apt install --reinstall libnss-mdns'; it asks avahi-daemon, which has "
                     "to run.")};
    case Seen::Unknown:
        break;
    }
    return {ok(kNames, "Names that end in .local are set to be looked up by multicast DNS.")};
}

Findings checkStatusHost(const SystemFacts& system)
{
    const StatusHostFacts& host = system.statusHost;
    if (!host.hasDesktop)
        return {ok(kStatusIcon, "There is no desktop here, and no status icon.")};
    if (host.hasPanel == Seen::Yes || host.hasTray == Seen::Yes)
        return {ok(kStatusIcon, "The desktop shows status icons.")};
    if (host.hasPanel == Seen::Unknown && host.hasTray == Seen::Unknown)
        return {warn(kStatusIcon, "Whether the desktop shows status icons could not be found out.",
                     "Start 'quillbox-helper' again to see its window.")};
    return {warn(kStatusIcon, "The desktop shows no status icons.",
                 "GNOME: 'sudo apt install gnome-shell-extension-appindicator', log in anew and "
                 "turn it on in Extensions. Without it, start 'quillbox-helper' again to see its "
                 "window.")};
}

} // namespace quillbox::doctor
