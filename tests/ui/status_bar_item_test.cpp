#include "tests/fakes/fake_status_host.h"
#include "ui/look/icons.h"
#include "ui/status_bar_item.h"

#include <functional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

TEST(StatusBarItem, hasMenuAndToolTipWithoutAnyHost)
{
    FakeStatusHost host;
    StatusBarItem item(host, Icons::status());
    item.menu().addAction(QStringLiteral("Quit"));
    item.setToolTip(QStringLiteral("Quillbox Helper — Finder service off"));
    EXPECT_EQ(item.toolTip(), QStringLiteral("Quillbox Helper — Finder service off"));
    EXPECT_EQ(item.menu().actions().size(), 1);
    EXPECT_FALSE(item.isShown());
}

TEST(StatusBarItem, countsAsShownWhileThereIsAHost)
{
    FakeStatusHost host;
    host.available = true;
    const StatusBarItem item(host, Icons::status());
    EXPECT_TRUE(item.isShown());
    host.become(false);
    EXPECT_FALSE(item.isShown());
    host.become(true);
    EXPECT_TRUE(item.isShown());
}

TEST(StatusBarItem, tellsWhenItsHostComesAndGoes)
{
    FakeStatusHost host;
    StatusBarItem item(host, Icons::status());
    std::vector<bool> told;
    item.shownChanged = [&] { told.push_back(item.isShown()); };
    host.become(true);
    host.become(false);
    host.become(true);
    EXPECT_EQ(told, (std::vector<bool>{true, false, true}));
}

TEST(StatusBarItem, leavesTheHostAlone)
{
    FakeStatusHost host;
    {
        const StatusBarItem item(host, Icons::status());
        EXPECT_TRUE(host.handler);
    }
    EXPECT_FALSE(host.handler);
}

} // namespace

} // namespace quillbox
