#include "tests/app/app_fixture.h"

#include <QAction>
#include <QKeySequence>
#include <QMenu>

namespace quillbox {

namespace {

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

TEST_F(StatusMenu, showsTheWindow)
{
    launch();
    delegate->window->close();
    entry(QStringLiteral("Show Quillbox Helper"))->trigger();
    EXPECT_TRUE(delegate->window->isVisible());
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

} // namespace

} // namespace quillbox
