#include "tests/ui/line_process.h"

#include <QDir>
#include <QFile>
#include <QLibraryInfo>
#include <QTemporaryDir>
#include <QVersionNumber>
#include <memory>
#include <utility>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

/// Each test has its own empty display and session bus.
class StatusItemOnDesktop : public ::testing::Test {
protected:
    void SetUp() override
    {
        const QString number = display.lineFrom(QString());
        const QString address = bus.lineFrom(QStringLiteral("unix:"));
        ASSERT_FALSE(number.isNull()) << "no X server";
        ASSERT_FALSE(address.isNull()) << "no session bus";
        environment = {QStringLiteral("DISPLAY=:") + number,
                       QStringLiteral("DBUS_SESSION_BUS_ADDRESS=") + address,
                       QStringLiteral("QT_QPA_PLATFORM=xcb"),
                       QStringLiteral("XDG_CURRENT_DESKTOP=")};
    }

    std::unique_ptr<LineProcess> start(const char* program, const QStringList& arguments = {},
                                       const char* firstLine = "running") const
    {
        auto process =
            std::make_unique<LineProcess>(QLatin1String(program), arguments, environment);
        EXPECT_FALSE(process->lineFrom(QLatin1String(firstLine)).isNull()) << program;
        return process;
    }

    std::unique_ptr<LineProcess> startOwner(const char* firstLine = "unavailable",
                                            int patience = 10'000) const
    {
        return start(STATUS_ITEM_OWNER, {QString::number(patience)}, firstLine);
    }

    static ::testing::AssertionResult tells(const std::unique_ptr<LineProcess>& process,
                                            const char* beginning)
    {
        if (process->lineFrom(QLatin1String(beginning)).isNull())
            return ::testing::AssertionFailure() << "no line \"" << beginning << '"';
        return ::testing::AssertionSuccess();
    }

    LineProcess display{QStringLiteral("Xvfb"),
                        {QStringLiteral("-displayfd"), QStringLiteral("1"),
                         QStringLiteral("-screen"), QStringLiteral("0"),
                         QStringLiteral("640x480x24"), QStringLiteral("-nolisten"),
                         QStringLiteral("tcp"), QStringLiteral("-noreset")}};
    QTemporaryDir folder;
    LineProcess bus{
        QStringLiteral("dbus-daemon"),
        {QStringLiteral("--session"),
         QStringLiteral("--address=unix:path=") + folder.filePath(QStringLiteral("bus")),
         QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
         QStringLiteral("--print-address=1")}};
    QStringList environment;
};

TEST_F(StatusItemOnDesktop, isShownInAPanelThatIsThere)
{
    const auto panel = start(PANEL_STAND_IN);
    const auto owner = startOwner();
    EXPECT_TRUE(tells(owner, "available"));
    EXPECT_TRUE(tells(panel, "item"));
    EXPECT_EQ(panel->lineFrom(QStringLiteral("tooltip")),
              QStringLiteral("tooltip Quillbox Helper — Finder service off"));
    EXPECT_GE(panel->lineFrom(QStringLiteral("pictures")).section(u' ', 1).toInt(), 5);
    EXPECT_TRUE(tells(panel, "entry Quillbox Helper"));
    EXPECT_TRUE(tells(panel, "entry Show Quillbox Helper"));
}

TEST_F(StatusItemOnDesktop, waitsForAPanelThatJoinsItsRegistryLate)
{
    const auto panel = start(PANEL_STAND_IN, {QStringLiteral("--no-host")});
    const auto tray = start(TRAY_STAND_IN);
    const auto owner = startOwner();
    EXPECT_FALSE(owner->hasLine(QStringLiteral("available"), 300));
    panel->write(QStringLiteral("host"));
    EXPECT_TRUE(tells(owner, "available"));
    EXPECT_TRUE(tells(panel, "item"));
    EXPECT_FALSE(tray->hasLine(QStringLiteral("icon"), 100));
}

TEST_F(StatusItemOnDesktop, takesTheTrayWhenNoPanelJoinsTheRegistry)
{
    const auto panel = start(PANEL_STAND_IN, {QStringLiteral("--no-host")});
    const auto tray = start(TRAY_STAND_IN);
    const auto owner = startOwner("unavailable", 200);
    if (QLibraryInfo::version() >= QVersionNumber(6, 5)) {
        EXPECT_FALSE(owner->hasLine(QStringLiteral("available"), 500)) << "Qt would not show it";
        return;
    }
    EXPECT_TRUE(tells(owner, "available"));
    EXPECT_TRUE(tells(tray, "icon"));
}

TEST_F(StatusItemOnDesktop, comesWithAPanelOrATrayAndComesBackWithIt)
{
    for (const auto& [program, sign] :
         {std::pair(PANEL_STAND_IN, "item"), {TRAY_STAND_IN, "icon"}}) {
        const auto owner = startOwner();
        for (int times = 0; times < 3; ++times) {
            const auto host = start(program);
            EXPECT_TRUE(tells(owner, "available"));
            EXPECT_TRUE(tells(host, sign));
            host->kill();
            EXPECT_TRUE(tells(owner, "unavailable"));
        }
    }
}

TEST_F(StatusItemOnDesktop, tellsThePanelItsToolTipAsPlainText)
{
    const auto panel = start(PANEL_STAND_IN);
    const auto owner = startOwner();
    ASSERT_TRUE(tells(panel, "end of menu"));
    owner->write(QStringLiteral("tooltip Tom & Jerry's <img src=x>") + QChar(0x202e));
    // The panel queries at its own time, so its query may arrive before the change.
    QString toolTip;
    for (int question = 0; question < 50 && !toolTip.contains(QStringLiteral("Tom")); ++question) {
        panel->write(QStringLiteral("look"));
        toolTip = panel->lineFrom(QStringLiteral("tooltip"));
    }
    EXPECT_EQ(toolTip, QStringLiteral("tooltip Tom & Jerry's <\u2060img src=x>\uFFFD"));
}

TEST_F(StatusItemOnDesktop, opensItsMenuAtAClickInThePanel)
{
    const auto panel = start(PANEL_STAND_IN);
    const auto owner = startOwner();
    ASSERT_TRUE(tells(panel, "end of menu"));
    panel->write(QStringLiteral("activate"));
    EXPECT_TRUE(tells(owner, "click"));
    EXPECT_TRUE(tells(owner, "menu"));
}

TEST_F(StatusItemOnDesktop, opensItsMenuForAPanelThatShowsNone)
{
    const auto panel = start(PANEL_STAND_IN);
    const auto owner = startOwner();
    ASSERT_TRUE(tells(panel, "end of menu"));
    panel->write(QStringLiteral("context"));
    EXPECT_TRUE(tells(owner, "click"));
    EXPECT_TRUE(tells(owner, "menu"));
    panel->write(QStringLiteral("context"));
    EXPECT_FALSE(owner->hasLine(QStringLiteral("click"), 200)) << "it is open already";
}

TEST_F(StatusItemOnDesktop, namesItsIconWhereTheIconThemeHasIt)
{
    const QDir icons(folder.filePath(QStringLiteral("data/icons/hicolor/symbolic/apps")));
    ASSERT_TRUE(icons.mkpath(QStringLiteral(".")));
    ASSERT_TRUE(QFile::copy(QStringLiteral(SYMBOLIC_ICON),
                            icons.filePath(QStringLiteral("org.quillbox.Helper-symbolic.svg"))));
    environment.append(QStringLiteral("XDG_DATA_HOME=") + folder.filePath(QStringLiteral("data")));
    const auto panel = start(PANEL_STAND_IN);
    const auto owner = startOwner();
    EXPECT_EQ(panel->lineFrom(QStringLiteral("icon")),
              QStringLiteral("icon org.quillbox.Helper-symbolic"));
    // For panels with another icon theme.
    EXPECT_GE(panel->lineFrom(QStringLiteral("pictures")).section(u' ', 1).toInt(), 5);
}

TEST_F(StatusItemOnDesktop, opensItsMenuAtAClickInTheTray)
{
    const auto tray = start(TRAY_STAND_IN);
    const auto owner = startOwner();
    EXPECT_TRUE(tells(owner, "available"));
    ASSERT_TRUE(tells(tray, "icon"));
    tray->write(QStringLiteral("click"));
    EXPECT_TRUE(tells(owner, "menu"));
}

} // namespace

} // namespace quillbox
