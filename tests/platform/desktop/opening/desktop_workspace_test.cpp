#include "platform/desktop/opening/desktop_workspace.h"
#include "tests/fakes/recording_notice.h"
#include "tests/platform/desktop/qt_support.h"

#include <QFile>
#include <QTemporaryDir>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;

class DesktopWorkspaceTest : public ::testing::Test {
protected:
    /// Installs a script as `xdg-open`.
    void makeOpener(const QByteArray& script)
    {
        QFile program(folder.filePath(QStringLiteral("xdg-open")));
        ASSERT_TRUE(program.open(QIODevice::WriteOnly));
        program.write("#!/bin/sh\n" + script + '\n');
        program.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    std::string printedByOpening(const std::string& url, const std::string& permission = {})
    {
        makeWorkspace();
        ::testing::internal::CaptureStderr();
        workspace->open(url, permission,
                        [this](const auto& reason) { results.push_back(reason.value_or("")); });
        return ::testing::internal::GetCapturedStderr();
    }

    void makeWorkspace()
    {
        workspace = makeDesktopWorkspace({.environment = environmentForPrograms()}, smbOpener,
                                         tokens, notice, "S");
    }

    /// Records the URLs that it is given, and reports a result at once.
    class RecordingOpener final : public SmbOpener {
    public:
        void open(const std::string& url, const std::string& token, Opened whenOpened) override
        {
            opened.emplace_back(url, token);
            whenOpened(failure);
        }

        std::vector<std::pair<std::string, std::string>> opened;
        std::optional<std::string> failure;
    };

    class FakeTokens final : public ActivationTokens {
    public:
        void request(const std::string& permission, Given given) override
        {
            if (permission.empty())
                requests.push_back(std::move(given));
            else
                given(permission);
        }

        std::vector<Given> requests;
    };

    QTemporaryDir folder;
    Environment environment;
    RecordingOpener smbOpener;
    FakeTokens tokens;
    RecordingNotice notice;
    std::vector<std::string> results;
    std::unique_ptr<Workspace> workspace;
};

constexpr const char* kShareUrl = "smb://nas@Quillbox%20Office._smb._tcp.local/NAS";

TEST_F(DesktopWorkspaceTest, handsHttpsUrlsToTheDesktopAsTheyAreWithTheToken)
{
    environment.set("PATH", folder.path().toUtf8() + ":/usr/bin:/bin");
    NamedPipe pipe(folder.filePath(QStringLiteral("pipe")).toStdString());
    makeOpener(R"(printf '%s|' "$#" "$@" $XDG_ACTIVATION_TOKEN > "$(dirname "$0")/pipe")");
    for (const std::string& url :
         {std::string("https://192.0.2.7:8443/"), std::string("https://[fe80::1%25eth0]:8443/")}) {
        const int reader = ::open(pipe.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        EXPECT_EQ(printedByOpening(url, "token"), "");
        EXPECT_EQ(pipe.readAll(), "1|" + url + "|token|");
        ::close(reader);
    }
    EXPECT_THAT(results, ElementsAre("", ""));
    EXPECT_THAT(notice.shown, IsEmpty());
}

TEST_F(DesktopWorkspaceTest, opensSmbUrlsInTheFileBrowser)
{
    environment.set("PATH", folder.path().toUtf8() + ":/usr/bin:/bin");
    makeOpener(R"(touch "$(dirname "$0")/opened")");
    EXPECT_EQ(printedByOpening(kShareUrl, "token"), "");
    EXPECT_THAT(smbOpener.opened, ElementsAre(Pair(kShareUrl, "token")));
    EXPECT_THAT(results, ElementsAre(""));
    EXPECT_THAT(notice.shown, IsEmpty());
    EXPECT_FALSE(QFile::exists(folder.filePath(QStringLiteral("opened"))));
}

TEST_F(DesktopWorkspaceTest, requestsATokenIfItIsGivenNone)
{
    printedByOpening(kShareUrl);
    EXPECT_THAT(smbOpener.opened, IsEmpty());
    ASSERT_EQ(tokens.requests.size(), 1U);
    tokens.requests.front()("fresh");
    EXPECT_THAT(smbOpener.opened, ElementsAre(Pair(kShareUrl, "fresh")));
}

TEST_F(DesktopWorkspaceTest, opensNothingOnceItIsDropped)
{
    printedByOpening(kShareUrl);
    workspace.reset();
    tokens.requests.front()("fresh");
    EXPECT_THAT(smbOpener.opened, IsEmpty());
}

TEST_F(DesktopWorkspaceTest, tellsTheUserWhyAShareWasNotOpenedAndWhatToDo)
{
    smbOpener.failure = "No file manager";
    printedByOpening(kShareUrl, "token");
    EXPECT_THAT(results, ElementsAre("No file manager. S."));
    EXPECT_THAT(notice.shown, ElementsAre("Cannot open the share: No file manager. S."));
}

TEST_F(DesktopWorkspaceTest, refusesEverythingElse)
{
    environment.set("PATH", folder.path().toUtf8() + ":/usr/bin:/bin");
    makeOpener(R"(touch "$(dirname "$0")/opened")");
    for (const char* url :
         {"", "http://192.0.2.7/", "file:///etc/passwd", "javascript:alert(1)", "--help",
          "https:", "httpsx://a/", "https://a b/", "https://a/\n", "https://\xc3\xa9/", "HTTPS",
          "smb:", "smb://a b/", "smb://a/\n", "smbs://a/", "SMB://a/"}) {
        EXPECT_THAT(printedByOpening(url, "token"), HasSubstr("not opened")) << url;
        EXPECT_THAT(notice.shown.back(), Not(HasSubstr("://")));
    }
    EXPECT_EQ(results.size(), 16U);
    EXPECT_THAT(results, Not(Contains("")));
    EXPECT_FALSE(QFile::exists(folder.filePath(QStringLiteral("opened"))));
    EXPECT_THAT(smbOpener.opened, IsEmpty());
}

TEST_F(DesktopWorkspaceTest, tellsTheUserThatTheDesktopHasNoOpener)
{
    environment.set("PATH", folder.path().toUtf8());
    EXPECT_THAT(printedByOpening("https://192.0.2.7/", "token"),
                HasSubstr("cannot start xdg-open"));
    EXPECT_THAT(results,
                ElementsAre("Cannot start xdg-open. Install xdg-utils and a web browser."));
    EXPECT_THAT(notice.shown, ElementsAre("Cannot open the web management: Cannot start xdg-open. "
                                          "Install xdg-utils and a web browser."));
}

} // namespace

} // namespace quillbox
