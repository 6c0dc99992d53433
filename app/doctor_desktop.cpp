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
    const std::string text = "No file manager here can open SMB shares.";
    const std::string advice =
        "GNOME, Xfce, Cinnamon, MATE: " + system.packageManager.howToInstall({Package::GvfsSmb})
        + "; KDE: " + system.packageManager.howToInstall({Package::KioSmb}) + '.';
    if (system.statusHost.hasDesktop)
        return {fail(kFileBrowser, text, advice)};
    return {warn(kFileBrowser, text, advice)};
}

Findings checkNames(const SystemFacts& system)
{
    const NameFacts& names = system.names;
    if (!names.asksMulticastDns)
        return {warn(kNames,
                     "Names that end in .local are not resolved by multicast DNS, so some file "
                     "managers confuse two phones.",
                     "To add 'mdns4_minimal [NOTFOUND=return]' to the line 'hosts:' of "
                     "/etc/nsswitch.conf: "
                         + system.packageManager.howToInstall({Package::LocalNames})
                         + "; if it is still missing, add it before 'dns'.")};
    switch (names.isResolved) {
    case Seen::Yes:
        return {ok(kNames, names.askedName + " is resolved by multicast DNS.")};
    case Seen::No:
        return {warn(kNames, names.askedName + " cannot be resolved.",
                     "avahi-daemon must be running, and the name service module installed: "
                         + system.packageManager.howToInstall({Package::LocalNames}) + '.')};
    case Seen::Unknown:
        break;
    }
    return {ok(kNames, "Names that end in .local are configured to use multicast DNS.")};
}

Findings checkStatusHost(const SystemFacts& system)
{
    const StatusHostFacts& host = system.statusHost;
    if (!host.hasDesktop)
        return {ok(kStatusIcon, "There is no desktop, so there is no status icon.")};
    if (host.hasPanel == Seen::Yes || host.hasTray == Seen::Yes)
        return {ok(kStatusIcon, "The desktop shows status icons.")};
    if (host.hasPanel == Seen::Unknown && host.hasTray == Seen::Unknown)
        return {warn(kStatusIcon, "Could not determine whether the desktop shows status icons.",
                     "Start 'quillbox-helper' again to see its window.")};
    return {warn(kStatusIcon, "The desktop shows no status icons.",
                 "GNOME: " + system.packageManager.howToInstall({Package::GnomeExtension})
                     + ", log in again and turn it on in Extensions. Without it, start "
                       "'quillbox-helper' again to see its window.")};
}

} // namespace quillbox::doctor
