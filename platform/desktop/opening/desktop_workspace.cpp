#include "platform/desktop/opening/desktop_workspace.h"

#include "platform/desktop/opening/alert_sound.h"
#include "platform/values/standard_error.h"

#include <QApplication>
#include <QPointer>
#include <algorithm>
#include <string_view>
#include <utility>

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
/// takes a QUrl, which loses a host with an encoded blank, and cannot restore what the program
/// inherited.
class DesktopWorkspace final : public Workspace {
public:
    DesktopWorkspace(const Inheritance& inherited, SmbOpener& opener,
                     ActivationTokens& activationTokens, Notice& failureNotice,
                     std::string adviceForShares)
        : inheritance(inherited),
          smbOpener(opener),
          tokens(activationTokens),
          notice(failureNotice),
          shareAdvice(std::move(adviceForShares))
    {
    }

    void open(const std::string& url, const std::string& permission, Opened opened) override
    {
        const bool isShare = url.starts_with("smb://");
        if (!isEncoded(url) || !(isShare || url.starts_with("https://")))
            return refuse(url, opened);
        tokens.request(permission, [context = QPointer(&guard), this, isShare, url,
                                    opened = std::move(opened)](const std::string& token) {
            if (context)
                isShare ? openShare(url, token, opened) : openPage(url, token, opened);
        });
    }

    /// On Wayland, beep() of Qt 6.4 and 6.8 does nothing.
    void beep() override
    {
        if (QGuiApplication::platformName().startsWith(QStringLiteral("wayland")))
            alertSound.play();
        else
            QApplication::beep();
    }

private:
    void openShare(const std::string& url, const std::string& token, const Opened& opened)
    {
        smbOpener.open(url, token, [this, opened](const std::optional<std::string>& reason) {
            report(kNoShare, reason ? std::optional(*reason + ". " + shareAdvice + '.') : reason,
                   opened);
        });
    }

    void openPage(const std::string& url, const std::string& token, const Opened& opened)
    {
        if (startDetached({kOpener, url}, withActivationToken(inheritance, token)))
            return report(kNoPage, std::nullopt, opened);
        printToStandardError(std::string("quillbox-helper: cannot start ") + kOpener + " to open "
                             + url);
        report(kNoPage,
               std::string("Cannot start ") + kOpener + ". Install xdg-utils and a web browser.",
               opened);
    }

    void refuse(const std::string& url, const Opened& opened)
    {
        printToStandardError("quillbox-helper: not opened, neither an https nor an smb URL: "
                             + url);
        report("Cannot open an address", "It belongs neither to a web page nor to a share.",
               opened);
    }

    void report(const char* title, const std::optional<std::string>& reason, const Opened& opened)
    {
        if (reason)
            notice.show(title, *reason, nullptr);
        if (opened)
            opened(reason);
    }

    static constexpr const char* kNoShare = "Cannot open the share";
    static constexpr const char* kNoPage = "Cannot open the web management";

    const Inheritance inheritance;
    SmbOpener& smbOpener;
    ActivationTokens& tokens;
    Notice& notice;
    const std::string shareAdvice;
    QObject guard;
    AlertSound alertSound;
};

} // namespace

std::unique_ptr<Workspace> makeDesktopWorkspace(const Inheritance& inheritance,
                                                SmbOpener& smbOpener, ActivationTokens& tokens,
                                                Notice& notice, std::string shareAdvice)
{
    return std::make_unique<DesktopWorkspace>(inheritance, smbOpener, tokens, notice,
                                              std::move(shareAdvice));
}

} // namespace quillbox
