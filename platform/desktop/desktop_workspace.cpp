#include "platform/desktop/desktop_workspace.h"

#include "platform/standard_error.h"

#include <QApplication>
#include <algorithm>
#include <string>
#include <string_view>

namespace quillbox {

namespace {

constexpr const char* kOpener = "xdg-open";

/// Whether the URL consists of printable ASCII, as any encoded URL does (RFC 3986, section 2).
bool isEncoded(std::string_view url)
{
    return std::all_of(url.begin(), url.end(),
                       [](char character) { return character > ' ' && character < '\x7f'; });
}

/// Passes https URLs to xdg-open unchanged. QDesktopServices would start the same program, but
/// takes a QUrl, which loses a host with an encoded blank, and cannot restore the program's limits.
class DesktopWorkspace final : public Workspace {
public:
    DesktopWorkspace(const InheritedLimits& inherited, SmbOpener& opener)
        : limits(inherited), smbOpener(opener)
    {
    }

    void open(const std::string& url) override
    {
        if (isEncoded(url) && url.starts_with("smb://"))
            smbOpener.open(url);
        else if (isEncoded(url) && url.starts_with("https://"))
            openInBrowser(url);
        else
            printToStandardError("quillbox-helper: not opened, neither an https nor an smb URL: "
                                 + url);
    }

    void beep() override { QApplication::beep(); }

private:
    void openInBrowser(const std::string& url)
    {
        if (!startDetached({kOpener, url}, limits))
            printToStandardError(std::string("quillbox-helper: cannot start ") + kOpener
                                 + " to open " + url);
    }

    const InheritedLimits limits;
    SmbOpener& smbOpener;
};

} // namespace

std::unique_ptr<Workspace> makeDesktopWorkspace(const InheritedLimits& limits, SmbOpener& smbOpener)
{
    return std::make_unique<DesktopWorkspace>(limits, smbOpener);
}

} // namespace quillbox
