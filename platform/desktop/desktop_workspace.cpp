#include "platform/desktop/desktop_workspace.h"

#include "platform/standard_error.h"

#include <QApplication>
#include <algorithm>
#include <string>
#include <string_view>

namespace quillbox {

namespace {

constexpr const char* kOpener = "xdg-open";

bool isAccepted(std::string_view url)
{
    if (!url.starts_with("https://") && !url.starts_with("smb://"))
        return false;
    // An encoded URL has no other characters (RFC 3986, section 2).
    return std::all_of(url.begin(), url.end(),
                       [](char character) { return character > ' ' && character < '\x7f'; });
}

/// The URL goes to xdg-open as it is. QDesktopServices, which would start the same program, takes a
/// QUrl, which loses a host with an encoded blank; and the programs that it or QProcess starts
/// cannot be given their own limits.
class DesktopWorkspace final : public Workspace {
public:
    explicit DesktopWorkspace(const InheritedLimits& inherited) : limits(inherited) {}

    void open(const std::string& url) override
    {
        if (!isAccepted(url))
            printToStandardError("quillbox-helper: not opened, for it is no https or smb URL: "
                                 + url);
        else if (!startDetached({kOpener, url}, limits))
            printToStandardError(std::string("quillbox-helper: cannot start ") + kOpener
                                 + " to open " + url);
    }

    void beep() override { QApplication::beep(); }

private:
    const InheritedLimits limits;
};

} // namespace

std::unique_ptr<Workspace> makeDesktopWorkspace(const InheritedLimits& limits)
{
    return std::make_unique<DesktopWorkspace>(limits);
}

} // namespace quillbox
