#include "tests/app/app_fixture.h"
#include "tests/fakes/socket_addresses.h"

#include <QAction>
#include <QApplication>
#include <QKeyEvent>
#include <QKeySequence>
#include <QMenu>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;

class StatusMenu : public AppFixture {
protected:
    QAction* entry(const QString& title) const
    {
        for (QAction* action : delegate->statusItem->menu().actions()) {
            if (action->text() == title)
                return action;
        }
        return nullptr;
    }

    static void press(QMenu& menu, int key, Qt::KeyboardModifiers modifiers)
    {
        QKeyEvent event(QEvent::KeyPress, key, modifiers);
        QApplication::sendEvent(&menu, &event);
    }

    /// The titles; "---" for a separator.
    std::vector<std::string> entries() const
    {
        std::vector<std::string> titles;
        for (const QAction* action : delegate->statusItem->menu().actions()) {
            const std::string title = action->text().toStdString();
            EXPECT_TRUE(action->isVisible()) << title;
            titles.push_back(action->isSeparator() ? "---"
                             : action->isEnabled() ? title
                                                   : title + " (disabled)");
        }
        return titles;
    }
};

TEST_F(StatusMenu, opensWithTheHeadingAndTheStatusDisabled)
{
    create();
    delegate->buildStatusItem();
    const auto actions = delegate->statusItem->menu().actions();
    EXPECT_EQ(actions.at(0)->text(), QStringLiteral("Quillbox Helper"));
    EXPECT_FALSE(actions.at(0)->isEnabled());
    EXPECT_EQ(actions.at(1), delegate->menuStatusItem);
    EXPECT_EQ(actions.at(1)->text(), QStringLiteral("Finder: off"));
    EXPECT_FALSE(actions.at(1)->isEnabled());
    EXPECT_TRUE(actions.at(2)->isSeparator());
    EXPECT_EQ(delegate->statusItem->toolTip(),
              QStringLiteral("Quillbox Helper — Finder service off"));
}

TEST_F(StatusMenu, hasNineEntriesInAFixedOrder)
{
    create();
    delegate->buildStatusItem();
    EXPECT_THAT(entries(),
                ElementsAre("Quillbox Helper (disabled)", "Finder: off (disabled)", "---",
                            "Show Quillbox Helper", "Restart Finder service", "Open in Finder",
                            "Open web management", "---", "Quit Quillbox Helper"));
}

TEST_F(StatusMenu, enablesItsEntriesInEveryState)
{
    const auto expectSameEntries = [this](const std::string& status) {
        EXPECT_THAT(entries(),
                    ElementsAre("Quillbox Helper (disabled)", status + " (disabled)", "---",
                                "Show Quillbox Helper", "Restart Finder service", "Open in Finder",
                                "Open web management", "---", "Quit Quillbox Helper"));
    };
    launch();
    expectSameEntries("Finder: off");
    findPhones({phoneNamed("Quillbox")});
    findManagement({phoneNamed("Quillbox")});
    report(listenerNamed("Quillbox"), Listener::State::Ready);
    expectSameEntries("Finder: visible");
    delegate->showInFinder.click();
    expectSameEntries("Finder: off");
}

TEST_F(StatusMenu, opensTheShareAndWebManagement)
{
    launch();
    findPhones({phoneNamed("Quillbox")});
    findManagement({phoneNamed("Quillbox")});
    entry(QStringLiteral("Open in Finder"))->trigger();
    EXPECT_THAT(workspace.opened, ElementsAre("smb://nas@Quillbox._smb._tcp.local/NAS"));
    EXPECT_EQ(network.dnsSd().resolutions().size(), 0U);
    entry(QStringLiteral("Open web management"))->trigger();
    EXPECT_EQ(network.dnsSd().resolutions().size(), 1U);
    EXPECT_EQ(workspace.opened.size(), 1U);
}

TEST_F(StatusMenu, showsTheWindow)
{
    launch();
    delegate->window->close();
    entry(QStringLiteral("Show Quillbox Helper"))->trigger();
    EXPECT_TRUE(delegate->window->isVisible());
}

TEST_F(StatusMenu, opensEverythingWithTheTokenThatThePanelPassedWithTheChoice)
{
    launch();
    findPhones({phoneNamed("Quillbox")});
    const auto choose = [this](const QString& title, const char* token) {
        windowPresence.ofPanel = token;
        entry(title)->trigger();
        EXPECT_EQ(windowPresence.ofPanel, "");
    };
    choose(QStringLiteral("Show Quillbox Helper"), "show");
    choose(QStringLiteral("Open web management"), "explain");
    EXPECT_THAT(windowPresence.permissions, ::testing::IsSupersetOf({"show", "explain"}));
    findManagement({phoneNamed("Quillbox")});
    choose(QStringLiteral("Open in Finder"), "share");
    choose(QStringLiteral("Open web management"), "page");
    network.dnsSd().resolutions().front().tell(found({{ipv4Address("192.0.2.7", 8443), 0}}));
    dispatch.runAll();
    EXPECT_THAT(workspace.permissions, ElementsAre("share", "page"));
}

TEST_F(StatusMenu, keepsATokenNoLongerThanTheChoiceThatItCameWith)
{
    launch();
    findManagement({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    windowPresence.ofPanel = "token";
    entry(QStringLiteral("Open web management"))->trigger();
    EXPECT_EQ(windowPresence.ofPanel, "");
    delegate->showHelper();
    EXPECT_EQ(windowPresence.permissions.back(), "");
}

TEST_F(StatusMenu, restartsTheFinderService)
{
    defaults.values["showInFinder"] = false;
    launch();
    entry(QStringLiteral("Restart Finder service"))->trigger();
    EXPECT_TRUE(delegate->showInFinder.isChecked());
    EXPECT_EQ(storedBool("showInFinder"), true);
    EXPECT_EQ(statusText(), "Looking for Quillbox on this network…");
}

TEST_F(StatusMenu, quitsByEntryAndByKey)
{
    launch();
    QAction* quit = entry(QStringLiteral("Quit Quillbox Helper"));
    EXPECT_EQ(quit->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit->trigger();
    EXPECT_EQ(terminations, 1);
}

TEST_F(StatusMenu, itsKeyQuitsWhileItIsOpen)
{
    launch();
    QMenu& menu = delegate->statusItem->menu();
    delegate->statusItem->openMenu();
    ASSERT_TRUE(menu.isVisible());
    press(menu, Qt::Key_Q, Qt::NoModifier);
    EXPECT_EQ(terminations, 0);
    EXPECT_TRUE(menu.isVisible());
    press(menu, Qt::Key_Q, Qt::ControlModifier);
    EXPECT_EQ(terminations, 1);
    EXPECT_FALSE(menu.isVisible());
}

TEST_F(StatusMenu, otherKeysMoveInItAsInAnyMenu)
{
    launch();
    QMenu& menu = delegate->statusItem->menu();
    delegate->window->close();
    delegate->statusItem->openMenu();
    press(menu, Qt::Key_Down, Qt::NoModifier);
    press(menu, Qt::Key_Return, Qt::NoModifier);
    EXPECT_TRUE(delegate->window->isVisible()) << "the first enabled entry";
    EXPECT_FALSE(menu.isVisible());
}

TEST_F(StatusMenu, opensAtAClickOnTheItemWhereTheDesktopCanPlaceIt)
{
    launch();
    delegate->window->close();
    delegate->statusItem->clicked();
    EXPECT_TRUE(delegate->statusItem->menu().isVisible());
    EXPECT_FALSE(delegate->window->isVisible());
}

TEST_F(StatusMenu, elsewhereAClickOnTheItemShowsTheWindow)
{
    launch();
    windowPresence.menusAnywhere = false;
    windowPresence.ofPanel = "token";
    delegate->window->close();
    delegate->statusItem->clicked();
    EXPECT_FALSE(delegate->statusItem->menu().isVisible());
    EXPECT_TRUE(delegate->window->isVisible());
    EXPECT_EQ(windowPresence.permissions.back(), "token");
}

} // namespace

} // namespace quillbox
