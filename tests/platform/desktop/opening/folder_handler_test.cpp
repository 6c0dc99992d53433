#include "platform/desktop/opening/folder_handler.h"
#include "tests/platform/desktop/qt_support.h"
#include "tests/platform/desktop/recorder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

constexpr const char* kWanted = "smb://host/Share";
constexpr const char* kByUser = "Default application for “inode/directory”: test.desktop\n";

class FolderHandlerTest : public ::testing::Test {
protected:
    FolderHandlerTest() { environment.set("XDG_DATA_HOME", folder.path().toUtf8()); }

    void addEntry(const char* name, const char* text) const
    {
        folder.write(QStringLiteral("applications/") + QLatin1String(name),
                     QString::fromUtf8(text));
    }

    /// The program that is chosen.
    static std::string chosenFrom(const std::string& output)
    {
        const auto handler = folderHandlerFor(kWanted, output);
        if (!handler)
            return "none";
        EXPECT_EQ(handler->arguments.size(), 2U);
        EXPECT_EQ(handler->arguments.back(), kWanted);
        return handler->arguments.front();
    }

    bool isFor(const char* text) const
    {
        addEntry("test.desktop", text);
        return folderHandlerFor(kWanted, kByUser).has_value();
    }

    const Recorder folder;
    Environment environment;
};

TEST_F(FolderHandlerTest, isTheUsersDefaultFileManager)
{
    addEntry("test.desktop", "[Desktop Entry]\nExec=test %U\nCategories=Qt;FileManager;\n");
    addEntry("other.desktop", "[Desktop Entry]\nExec=x %U\nCategories=FileManager;\n");
    EXPECT_EQ(chosenFrom("Default application for ?inode/directory?: test.desktop\n"
                         "Registered applications:\n\tother.desktop\n"),
              "test");
    EXPECT_EQ(chosenFrom("Default application for “inode/directory”: a: test.desktop"), "test");
}

TEST_F(FolderHandlerTest, isAFileManagerThatIsRegisteredIfTheDefaultProgramDoesNotFit)
{
    addEntry("editor.desktop", "[Desktop Entry]\nExec=editor %F\n");
    addEntry("usage.desktop", "[Desktop Entry]\nExec=usage %U\nCategories=X-FileManager;\n");
    addEntry("thunar.desktop", "[Desktop Entry]\nExec=thunar %U\nCategories=GTK;FileManager;\n");
    addEntry("nemo.desktop", "[Desktop Entry]\nExec=nemo %U\nCategories=FileManager\n");
    EXPECT_EQ(chosenFrom("Default application for “inode/directory”: editor.desktop\n"
                         "Registered applications:\n\teditor.desktop\n\tusage.desktop\n"
                         "\tthunar.desktop\n\tnemo.desktop\n"),
              "thunar");
    EXPECT_EQ(chosenFrom("No default applications for “inode/directory”\n"
                         "Registered applications:\n\tnemo.desktop\n"),
              "nemo");
    EXPECT_EQ(chosenFrom("No default applications for “inode/directory”\n\n"
                         "xthunar.desktop\n\tnemo.desktop\n"),
              "nemo")
        << "only what is behind a tab is a program";
}

/// The entries of Nemo and Caja do not say that they are file managers.
TEST_F(FolderHandlerTest, isTheDefaultProgramThatSomebodyHasChosenWhateverItsCategory)
{
    addEntry("nemo.desktop", "[Desktop Entry]\nExec=nemo %U\nCategories=GTK;Utility;\n");
    addEntry("files.desktop", "[Desktop Entry]\nExec=files %U\nCategories=FileManager;\n");
    const std::string output = "Default application for “inode/directory”: nemo.desktop\n"
                               "Registered applications:\n\tnemo.desktop\n\tfiles.desktop\n";
    environment.set("XDG_CONFIG_HOME", folder.path().toUtf8() + "/config");
    environment.set("XDG_CURRENT_DESKTOP", "X-Other:X-Cinnamon");
    EXPECT_EQ(chosenFrom(output), "files");
    const auto chooses = [&](const char* list, const char* text) {
        const QString path = folder.path() + u'/' + QLatin1String(list);
        QDir().mkpath(QFileInfo(path).path());
        folder.write(QLatin1String(list), QString::fromUtf8(text));
        const std::string chosen = chosenFrom(output);
        QFile::remove(path);
        return chosen == "nemo";
    };
    const char* choice = "[Default Applications]\ninode/directory=x.desktop;nemo.desktop;\n";
    for (const char* list :
         {"config/mimeapps.list", "config/x-cinnamon-mimeapps.list", "applications/mimeapps.list",
          "applications/x-other-mimeapps.list", "applications/defaults.list"})
        EXPECT_TRUE(chooses(list, choice)) << list;
    EXPECT_FALSE(chooses("config/mate-mimeapps.list", choice)) << "of another desktop";
    EXPECT_TRUE(
        chooses("config/mimeapps.list", "[Added Associations]\ninode/directory=nemo.desktop\n"));
    for (const char* other : {"[Default Applications]\ninode/directory=files.desktop;\n",
                              "[Default Applications]\ntext/plain=nemo.desktop;\n",
                              "[Removed Associations]\ninode/directory=nemo.desktop;\n"})
        EXPECT_FALSE(chooses("config/mimeapps.list", other)) << other;
}

/// Where nobody has chosen one, `gio mime` names the first of all registered programs.
TEST_F(FolderHandlerTest, isAnotherDefaultProgramOnlyIfNoFileManagerTakesUrls)
{
    addEntry("usage.desktop", "[Desktop Entry]\nExec=usage %u\nCategories=GTK;System;\n");
    addEntry("files.desktop", "[Desktop Entry]\nExec=files %U\nCategories=FileManager;\n");
    addEntry("old.desktop", "[Desktop Entry]\nExec=old %F\nCategories=FileManager;\n");
    const std::string usage = "Default application for “inode/directory”: usage.desktop\n"
                              "Registered applications:\n\tusage.desktop\n";
    EXPECT_EQ(chosenFrom(usage + "\told.desktop\n\tfiles.desktop\n"), "files");
    EXPECT_EQ(chosenFrom(usage + "\told.desktop\n"), "usage");
    addEntry("player.desktop", "[Desktop Entry]\nExec=player %U\nCategories=Audio;\n");
    EXPECT_EQ(chosenFrom(usage + "\tplayer.desktop\n"), "usage");
}

TEST_F(FolderHandlerTest, isNoneWhereNothingIsRegistered)
{
    for (const char* output : {"", "\n: x.desktop\n", "Registered applications:\n\tmissing.desktop",
                               "No default applications for “inode/directory”\n"})
        EXPECT_EQ(chosenFrom(output), "none") << output;
}

TEST_F(FolderHandlerTest, takesUrls)
{
    EXPECT_TRUE(isFor("[Desktop Entry]\nType=Application\nExec=thunar %U\n"));
    EXPECT_TRUE(isFor("# x\n[Desktop Entry]\nExec = dolphin --new 50%% %u"));
    EXPECT_FALSE(isFor("[Desktop Entry]\nExec=old-manager %F\n"));
    EXPECT_FALSE(isFor("[Desktop Entry]\nExec=old-manager %%u\n"));
    EXPECT_FALSE(isFor("[Desktop Entry]\nExec=old-manager %\n"));
    EXPECT_FALSE(isFor("[Desktop Entry]\nName=%u\n"));
    EXPECT_FALSE(isFor(""));
}

TEST_F(FolderHandlerTest, isDescribedInTheMainGroupOnly)
{
    EXPECT_FALSE(isFor("[Desktop Entry]\nExec=old-manager\n[Desktop Action new]\nExec=x %U\n"));
    EXPECT_TRUE(isFor("[Desktop Entry]\nExec=x %U\n[Desktop Action new]\nExec=x\nTerminal=true\n"));
}

TEST_F(FolderHandlerTest, needsNoTerminal)
{
    EXPECT_FALSE(isFor("[Desktop Entry]\nExec=ranger %U\nTerminal=true\n"));
    EXPECT_TRUE(isFor("[Desktop Entry]\nExec=x %U\nTerminal=false\n"));
}

TEST_F(FolderHandlerTest, hasABusNameIfItOpensUrlsOverTheBus)
{
    addEntry("org.example.Files.desktop", "[Desktop Entry]\nExec=x %U\nDBusActivatable=true\n");
    addEntry("test.desktop", "[Desktop Entry]\nExec=x %U\nDBusActivatable=false\n");
    EXPECT_EQ(
        folderHandlerFor(kWanted, "Default application for x: org.example.Files.desktop")->busName,
        "org.example.Files");
    EXPECT_EQ(folderHandlerFor(kWanted, kByUser)->busName, "");
}

TEST_F(FolderHandlerTest, isNoneForAnIdentifierThatIsNone)
{
    addEntry("other.desktop", "");
    folder.write(QStringLiteral("x.desktop"), QStringLiteral("[Desktop Entry]\nExec=x %U\n"));
    for (const char* identifier : {"", "missing.desktop", "../x.desktop", "/x.desktop", "x"})
        EXPECT_EQ(chosenFrom(std::string("Default application for x: ") + identifier), "none")
            << identifier;
}

} // namespace

} // namespace quillbox
