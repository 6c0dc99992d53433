#include "platform/desktop/desktop_workspace.h"
#include "tests/platform/desktop/qt_support.h"

#include <QFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::HasSubstr;

class DesktopWorkspaceTest : public ::testing::Test {
protected:
    /// Puts a program in the place of the desktop's opener.
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

    QTemporaryDir folder;
    Environment environment;
    std::unique_ptr<Workspace> workspace = makeDesktopWorkspace({});
};

TEST_F(DesktopWorkspaceTest, handsUrlsToTheDesktopAsTheyAre)
{
    environment.set("PATH", folder.path().toUtf8() + ":/usr/bin:/bin");
    NamedPipe pipe(folder.filePath(QStringLiteral("pipe")).toStdString());
    makeOpener("printf '%s|' \"$#\" \"$@\" > \"$(dirname \"$0\")/pipe\"");
    for (const std::string& url :
         {std::string("https://192.0.2.7:8443/"), std::string("https://[fe80::1%25eth0]:8443/"),
          std::string("smb://nas@Quillbox%20Office._smb._tcp.local/NAS")}) {
        const int reader = ::open(pipe.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        EXPECT_EQ(printedByOpening(url), "");
        EXPECT_EQ(pipe.readAll(), "1|" + url + '|');
        ::close(reader);
    }
}

TEST_F(DesktopWorkspaceTest, refusesEverythingElse)
{
    environment.set("PATH", folder.path().toUtf8() + ":/usr/bin:/bin");
    makeOpener("touch \"$(dirname \"$0\")/opened\"");
    for (const char* url :
         {"", "http://192.0.2.7/", "file:///etc/passwd", "javascript:alert(1)", "--help",
          "https:", "httpsx://a/", "https://a b/", "https://a/\n", "https://\xc3\xa9/", "HTTPS"})
        EXPECT_THAT(printedByOpening(url), HasSubstr("not opened")) << url;
    EXPECT_FALSE(QFile::exists(folder.filePath(QStringLiteral("opened"))));
}

TEST_F(DesktopWorkspaceTest, saysWhenTheDesktopHasNoOpener)
{
    environment.set("PATH", folder.path().toUtf8());
    EXPECT_THAT(printedByOpening("https://192.0.2.7/"), HasSubstr("cannot start xdg-open"));
}

} // namespace

} // namespace quillbox
