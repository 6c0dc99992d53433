#include "platform/desktop/opening/folder_handler.h"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using Arguments = std::optional<std::vector<std::string>>;

Arguments argumentsOf(const std::string& exec)
{
    const auto entry = parsedDesktopEntry("[Desktop Entry]\nName=Files here\nExec=" + exec + '\n');
    return argumentsToOpen("smb://a/B%20c", entry);
}

TEST(DesktopEntry, isReadFromTheMainGroup)
{
    EXPECT_EQ(
        parsedDesktopEntry("# x\n[Desktop Entry 2]\nName=No\n[Desktop Entry]\nName[de]=Dateien\n"
                           "Name = Files\\\\\nExec=files \\\\\\s%U\nTerminal=true\n"
                           "DBusActivatable=true\nCategories=GTK;FileManager;\n"
                           "[Desktop Action x]\nExec=other\nTerminal=false\n"),
        (DesktopEntry{.name = "Files\\",
                      .command = "files \\ %U",
                      .isForTerminal = true,
                      .isBusActivatable = true,
                      .isFileManager = true}));
    EXPECT_EQ(parsedDesktopEntry(""), DesktopEntry());
}

TEST(DesktopEntry, hasTheUrlInItsArgumentsUnchanged)
{
    EXPECT_EQ(argumentsOf("files %U"), Arguments({"files", "smb://a/B%20c"}));
    EXPECT_EQ(argumentsOf("/usr/bin/caja  --no-desktop %u"),
              Arguments({"/usr/bin/caja", "--no-desktop", "smb://a/B%20c"}));
    EXPECT_EQ(argumentsOf("files --uri=%u -x"), Arguments({"files", "--uri=smb://a/B%20c", "-x"}));
}

TEST(DesktopEntry, replacesTheOtherFieldCodes)
{
    EXPECT_EQ(argumentsOf("files --title %c --share=50%% %i %F %U %k"),
              Arguments({"files", "--title", "Files here", "--share=50%", "smb://a/B%20c"}));
}

TEST(DesktopEntry, hasQuotedArguments)
{
    EXPECT_EQ(argumentsOf(R"("/opt/my files/run" ""  "a\\"b\\$c" %u)"),
              Arguments({"/opt/my files/run", "", "a\"b$c", "smb://a/B%20c"}));
}

TEST(DesktopEntry, opensNoUrlsIfItsCommandTakesNoneOrIsMalformed)
{
    for (const char* exec : {"", "files", "files %F", "files %%u", "files %", "files \"%u", "%u"})
        EXPECT_EQ(argumentsOf(exec), std::nullopt) << exec;
}

} // namespace

} // namespace quillbox
