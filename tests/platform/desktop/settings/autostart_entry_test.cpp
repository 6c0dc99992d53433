#include "platform/desktop/settings/autostart_entry.h"
#include "tests/platform/desktop/qt_support.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace quillbox {

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

using Outcome = AutostartResult::Outcome;

constexpr const char* kProgram = "/usr/bin/quillbox-helper";

class AutostartEntry : public ::testing::Test {
protected:
    QString file() const { return base.filePath(QStringLiteral("a/autostart/entry.desktop")); }
    std::string path() const { return file().toStdString(); }

    std::string contents() const
    {
        QFile opened(file());
        return opened.open(QIODevice::ReadOnly) ? opened.readAll().toStdString() : "";
    }

    QStringList filesBesides() const
    {
        return QFileInfo(file()).dir().entryList(QDir::Files | QDir::Hidden);
    }

    QTemporaryDir base;
};

TEST_F(AutostartEntry, isWrittenWithItsFolderAndTaken)
{
    const auto on = setAutostart(Autostart::On, path(), kProgram);
    EXPECT_EQ(on.outcome, Outcome::Done);
    EXPECT_EQ(on.text, "Starts at login from now on: wrote " + path());
    EXPECT_THAT(contents(), StartsWith("[Desktop Entry]\nType=Application\n"));
    EXPECT_THAT(contents(), HasSubstr("\nExec=\"/usr/bin/quillbox-helper\" --hidden\n"));
    EXPECT_EQ(filesBesides(), QStringList{QStringLiteral("entry.desktop")});

    const auto off = setAutostart(Autostart::Off, path(), kProgram);
    EXPECT_EQ(off.outcome, Outcome::Done);
    EXPECT_EQ(off.text, "Does not start at login any more: removed " + path());
    EXPECT_FALSE(QFile::exists(file()));
}

TEST_F(AutostartEntry, thatIsThereAlreadyIsReplaced)
{
    ASSERT_EQ(setAutostart(Autostart::On, path(), "/opt/old").outcome, Outcome::Done);
    EXPECT_EQ(setAutostart(Autostart::On, path(), kProgram).outcome, Outcome::Done);
    EXPECT_THAT(contents(), HasSubstr(kProgram));
    EXPECT_EQ(contents().find("/opt/old"), std::string::npos);
}

TEST_F(AutostartEntry, thatIsNotThereIsOff)
{
    const auto off = setAutostart(Autostart::Off, path(), kProgram);
    EXPECT_EQ(off.outcome, Outcome::Done);
    EXPECT_EQ(off.text, "Does not start at login: there is no " + path());
    const auto belowFile = setAutostart(Autostart::Off, "/proc/version/entry.desktop", kProgram);
    EXPECT_EQ(belowFile.outcome, Outcome::Done);
}

TEST_F(AutostartEntry, thatCannotBeChangedIsReported)
{
    QDir().mkpath(file()); // a folder instead of a file
    for (const Autostart wanted : {Autostart::On, Autostart::Off}) {
        const auto result = setAutostart(wanted, path(), kProgram);
        EXPECT_EQ(result.outcome, Outcome::Failed);
        EXPECT_THAT(result.text, StartsWith("cannot change " + path() + ": "));
    }
    EXPECT_EQ(setAutostart(Autostart::On, "", kProgram).outcome, Outcome::Failed);
}

TEST_F(AutostartEntry, inAFolderThatIsClosedStaysAsItIs)
{
    ASSERT_EQ(setAutostart(Autostart::On, path(), kProgram).outcome, Outcome::Done);
    const QByteArray folder = QFile::encodeName(QFileInfo(file()).path());
    ::chmod(base.path().toStdString().c_str(), 0755);
    ::chmod(folder.constData(), 0555);
    const OrdinaryUser user(folder.toStdString());
    EXPECT_EQ(setAutostart(Autostart::On, path(), "/opt/new").outcome, Outcome::Failed);
    EXPECT_EQ(setAutostart(Autostart::Off, path(), kProgram).outcome, Outcome::Failed);
    EXPECT_THAT(contents(), HasSubstr(kProgram));
}

TEST_F(AutostartEntry, quotesTheProgramAsDesktopsReadIt)
{
    const auto execOf = [](const std::string& program) {
        const auto text = autostartText(program).value_or("Exec=none\n");
        const auto start = text.find("Exec=") + 5;
        return text.substr(start, text.find('\n', start) - start);
    };
    EXPECT_EQ(execOf("/a b/c"), R"("/a b/c" --hidden)");
    EXPECT_EQ(execOf("/50%/c"), R"("/50%%/c" --hidden)");
    EXPECT_EQ(execOf("/a$b`c\"d"), R"("/a\\$b\\`c\\"d" --hidden)");
    EXPECT_EQ(execOf("/a\\b"), R"("/a\\\\b" --hidden)");
    EXPECT_EQ(execOf("/K\u00fcche"), "\"/K\u00fcche\" --hidden");
    for (const char* unfit : {"", "relative", "/a=b", "/a\nb", "/a\x7f", "/a\xff"})
        EXPECT_EQ(execOf(unfit), "none") << unfit;
}

TEST_F(AutostartEntry, namesThisProgram)
{
    EXPECT_THAT(ownProgram(), ::testing::EndsWith("/test_desktop_settings"));
}

} // namespace

} // namespace quillbox
