#include "doctor/doctor_checks.h"

namespace quillbox::doctor {

namespace {

using LocalNames = NameService::LocalNames;

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
    const PackageManager& packages = system.packageManager;
    const auto bad = system.statusHost.hasDesktop ? fail : warn;
    const std::string consequence =
        ", so file managers cannot open the phones that they list; \"Open in Finder\" can.";
    switch (names.service.localNames()) {
    case LocalNames::Unknown:
        return {warn(kNames, "Could not determine how names that end in .local are resolved.",
                     "Outside the sandbox, look for 'mdns4_minimal' in the line 'hosts:' of "
                     "/etc/nsswitch.conf.")};
    case LocalNames::Nowhere:
        return {bad(kNames,
                    "Names that end in .local are not resolved by multicast DNS" + consequence,
                    "To add 'mdns4_minimal [NOTFOUND=return]' to the line 'hosts:' of "
                    "/etc/nsswitch.conf: "
                        + packages.howToInstall({Package::LocalNames})
                        + "; if it is still missing, add it before 'dns'.")};
    case LocalNames::Avahi:
        if (names.isResolved == Seen::No)
            return {bad(kNames, "Names that end in .local cannot be resolved" + consequence,
                        "avahi-daemon must be running, and the name service module installed: "
                            + packages.howToRunAvahiDaemon() + '.')};
        if (names.isResolved == Seen::Unknown && !names.askedName.empty())
            return {warn(kNames,
                         names.askedName
                             + " is not resolved within seconds, because no DNS server answers, so "
                               "file managers open phones slowly.",
                         "The name service asks a DNS server before it uses multicast DNS: check "
                         "the servers in /etc/resolv.conf.")};
        break;
    case LocalNames::Resolved:
        if (names.isResolved == Seen::Yes)
            break;
        if (names.isResolved == Seen::Unknown && names.askedName.empty())
            return {warn(kNames,
                         "systemd-resolved is asked for names that end in .local. Whether it "
                         "resolves those that this computer gives the phones depends on its "
                         "version, and the helper shows no phone to try it with.",
                         "Run 'quillbox-helper doctor' again while the helper shows a phone.")};
        return {bad(kNames,
                    "systemd-resolved, which is asked for names that end in .local, does not "
                    "resolve those that this computer gives the phones"
                        + consequence,
                    packages.howToInstall({Package::LocalNames})
                        + ", and write 'mdns4_minimal [NOTFOUND=return]' before 'resolve' in the "
                          "line 'hosts:' of /etc/nsswitch.conf.")};
    }
    if (names.isResolved == Seen::Yes)
        return {ok(kNames, names.askedName + " is resolved by multicast DNS.")};
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
