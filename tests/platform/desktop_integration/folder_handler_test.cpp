#include "platform/desktop/folder_handler.h"
#include "tests/platform/desktop_integration/recorder.h"

#include <QByteArray>
#include <string>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

TEST(FolderHandler, isNamedBehindTheColonOfTheFirstLine)
{
    EXPECT_EQ(folderHandlerIn("Default application for ?inode/directory?: thunar.desktop\n"
                              "Registered applications:\n\tnemo.desktop\n"),
              "thunar.desktop");
    EXPECT_EQ(folderHandlerIn("Default application for “inode/directory”: a: b.desktop"),
              "b.desktop");
}

TEST(FolderHandler, isNoneWhenNoProgramIsPreferred)
{
    EXPECT_EQ(folderHandlerIn(""), std::nullopt);
    EXPECT_EQ(folderHandlerIn("\n: x.desktop\n"), std::nullopt);
    EXPECT_EQ(folderHandlerIn("No default applications for “inode/directory”\n"), std::nullopt);
    EXPECT_EQ(folderHandlerIn("Registered applications:\n\tnemo.desktop\n"), std::nullopt);
}

class DesktopEntry : public ::testing::Test {
protected:
    DesktopEntry() { qputenv("XDG_DATA_HOME", folder.path().toUtf8()); }
    ~DesktopEntry() override
    {
        if (before.isNull())
            qunsetenv("XDG_DATA_HOME");
        else
            qputenv("XDG_DATA_HOME", before);
    }

    bool isFor(const char* text) const
    {
        folder.write(QStringLiteral("applications/test.desktop"), QString::fromUtf8(text));
        const auto path = desktopEntryForUrls("test.desktop");
        EXPECT_EQ(path.value_or(folder.path().toStdString() + "/applications/test.desktop"),
                  folder.path().toStdString() + "/applications/test.desktop");
        return path.has_value();
    }

    const QByteArray before = qgetenv("XDG_DATA_HOME");
    const Recorder folder;
};

TEST_F(DesktopEntry, isFoundWhenItsProgramTakesUrls)
{
    EXPECT_TRUE(isFor("[Desktop Entry]\nType=Application\nExec=thunar %U\n"));
    EXPECT_TRUE(isFor("# x\n[Desktop Entry]\nExec = dolphin --new 50%% %u"));
}

TEST_F(DesktopEntry, isNoneWhenItsProgramTakesPathsOrNothing)
{
    EXPECT_FALSE(isFor("[Desktop Entry]\nExec=old-manager %F\n"));
    EXPECT_FALSE(isFor("[Desktop Entry]\nExec=old-manager %%u\n"));
    EXPECT_FALSE(isFor("[Desktop Entry]\nExec=old-manager %\n"));
    EXPECT_FALSE(isFor("[Desktop Entry]\nName=%u\n"));
    EXPECT_FALSE(isFor(""));
}

TEST_F(DesktopEntry, looksAtItsMainGroupOnly)
{
    EXPECT_FALSE(isFor("[Desktop Entry]\nExec=old-manager\n[Desktop Action new]\nExec=x %U\n"));
    EXPECT_TRUE(isFor("[Desktop Entry]\nExec=x %U\n[Desktop Action new]\nExec=x\nTerminal=true\n"));
}

TEST_F(DesktopEntry, isNoneForATerminal)
{
    EXPECT_FALSE(isFor("[Desktop Entry]\nExec=ranger %U\nTerminal=true\n"));
    EXPECT_TRUE(isFor("[Desktop Entry]\nExec=x %U\nTerminal=false\n"));
}

TEST_F(DesktopEntry, isNoneForAnIdentifierThatIsNone)
{
    folder.write(QStringLiteral("x.desktop"), QStringLiteral("[Desktop Entry]\nExec=x %U\n"));
    for (const char* identifier : {"", "missing.desktop", "../x.desktop", "/x.desktop", "x"})
        EXPECT_EQ(desktopEntryForUrls(identifier), std::nullopt) << identifier;
}

} // namespace

} // namespace quillbox
