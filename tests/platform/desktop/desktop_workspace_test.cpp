#include "platform/desktop/desktop_workspace.h"
#include "tests/platform/desktop/qt_support.h"

#include <QFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

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

    std::string printedByOpening(const std::string& url)
    {
        ::testing::internal::CaptureStderr();
        workspace->open(url);
        return ::testing::internal::GetCapturedStderr();
    }

    /// Records the URLs that it is given.
    class RecordingOpener final : public SmbOpener {
    public:
        void open(const std::string& url) override { opened.push_back(url); }

        std::vector<std::string> opened;
    };

    QTemporaryDir folder;
    Environment environment;
    RecordingOpener smbOpener;
    std::unique_ptr<Workspace> workspace = makeDesktopWorkspace({}, smbOpener);
};

TEST_F(DesktopWorkspaceTest, handsHttpsUrlsToTheDesktopAsTheyAre)
{
    environment.set("PATH", folder.path().toUtf8() + ":/usr/bin:/bin");
    NamedPipe pipe(folder.filePath(QStringLiteral("pipe")).toStdString());
    makeOpener(R"(printf '%s|' "$#" "$@" > "$(dirname "$0")/pipe")");
    for (const std::string& url :
         {std::string("https://192.0.2.7:8443/"), std::string("https://[fe80::1%25eth0]:8443/")}) {
        const int reader = ::open(pipe.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        EXPECT_EQ(printedByOpening(url), "");
        EXPECT_EQ(pipe.readAll(), "1|" + url + '|');
        ::close(reader);
    }
}

TEST_F(DesktopWorkspaceTest, opensSmbUrlsInTheFileBrowser)
{
    environment.set("PATH", folder.path().toUtf8() + ":/usr/bin:/bin");
    makeOpener(R"(touch "$(dirname "$0")/opened")");
    const std::string url = "smb://nas@Quillbox%20Office._smb._tcp.local/NAS";
    EXPECT_EQ(printedByOpening(url), "");
    EXPECT_EQ(smbOpener.opened, std::vector<std::string>{url});
    EXPECT_FALSE(QFile::exists(folder.filePath(QStringLiteral("opened"))));
}

TEST_F(DesktopWorkspaceTest, refusesEverythingElse)
{
    environment.set("PATH", folder.path().toUtf8() + ":/usr/bin:/bin");
    makeOpener(R"(touch "$(dirname "$0")/opened")");
    for (const char* url :
         {"", "http://192.0.2.7/", "file:///etc/passwd", "javascript:alert(1)", "--help",
          "https:", "httpsx://a/", "https://a b/", "https://a/\n", "https://\xc3\xa9/", "HTTPS",
          "smb:", "smb://a b/", "smb://a/\n", "smbs://a/", "SMB://a/"})
        EXPECT_THAT(printedByOpening(url), HasSubstr("not opened")) << url;
    EXPECT_FALSE(QFile::exists(folder.filePath(QStringLiteral("opened"))));
    EXPECT_THAT(smbOpener.opened, IsEmpty());
}

TEST_F(DesktopWorkspaceTest, saysWhenTheDesktopHasNoOpener)
{
    environment.set("PATH", folder.path().toUtf8());
    EXPECT_THAT(printedByOpening("https://192.0.2.7/"), HasSubstr("cannot start xdg-open"));
}

} // namespace

} // namespace quillbox
