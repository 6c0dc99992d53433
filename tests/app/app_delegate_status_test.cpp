#include "tests/app/app_fixture.h"
#include "ui/look/brand.h"

#include <QPalette>

namespace quillbox {

namespace {

class Status : public AppFixture {
protected:
    std::string printedFor(const StatusReport& report)
    {
        ::testing::internal::CaptureStderr();
        delegate->setStatus(report);
        return ::testing::internal::GetCapturedStderr();
    }
};

TEST_F(Status, aReportShowsAsDotAndText)
{
    launch();
    delegate->setStatus({.ready = true, .text = "one"});
    EXPECT_TRUE(isStatusReady());
    EXPECT_EQ(statusText(), "one");
    delegate->setStatus({.ready = false, .text = "two"});
    EXPECT_FALSE(isStatusReady());
    EXPECT_EQ(statusText(), "two");
}

constexpr const char* kNoAvahi =
    "File managers list no phones, because avahi-daemon is not running: 'sudo apt install "
    "avahi-daemon libnss-mdns', then 'sudo systemctl enable --now avahi-daemon'.";

TEST_F(Status, theBoxSaysWhyFileManagersListNothing)
{
    launch();
    const QWidget& box = *delegate->statusLabel.parentWidget();
    const auto hint = [&box] { return box.toolTip().toStdString(); };
    delegate->setStatus({.ready = true, .text = "1 Quillbox device visible in Finder"});
    EXPECT_EQ(hint(), "");

    ::testing::internal::CaptureStderr();
    networkView.become(false);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              std::string("quillbox-helper: ") + kNoAvahi + '\n');
    EXPECT_EQ(hint(), kNoAvahi);
    EXPECT_EQ(delegate->statusLabel.accessibleDescription().toStdString(), kNoAvahi);
    EXPECT_EQ(statusText(), "1 Quillbox device visible in Finder");
    EXPECT_EQ(delegate->helperStatus().hint, kNoAvahi);

    networkView.become(true);
    EXPECT_EQ(hint(), "");
    EXPECT_EQ(delegate->statusLabel.accessibleDescription(), QString());
    EXPECT_EQ(delegate->helperStatus().hint, "");
}

TEST_F(Status, theBoxSaysNothingOfFileManagersWhileNothingIsShownInThem)
{
    launch();
    const QWidget& box = *delegate->statusLabel.parentWidget();
    networkView.become(false);
    delegate->showInFinder.click();
    EXPECT_EQ(box.toolTip(), QString());
    EXPECT_EQ(delegate->helperStatus().hint, "");
    delegate->showInFinder.click();
    EXPECT_EQ(box.toolTip().toStdString(), kNoAvahi);
}

TEST_F(Status, theTextKeepsItsColour)
{
    launch();
    const auto colour = [this] {
        const QLabel& label = delegate->statusLabel;
        return label.palette().color(label.foregroundRole());
    };
    EXPECT_EQ(colour(), Brand::slate);
    delegate->setStatus({.ready = true, .text = "one"});
    EXPECT_EQ(colour(), Brand::slate);
    delegate->setStatus({.ready = false, .text = "two"});
    EXPECT_EQ(colour(), Brand::slate);
}

TEST_F(Status, theDotIsGreenWhenReadyAndElseSlate)
{
    launch();
    const auto colour = [this] {
        return delegate->statusDot.palette().color(QPalette::WindowText);
    };
    EXPECT_EQ(colour(), Brand::slate);
    delegate->setStatus({.ready = true, .text = "one"});
    EXPECT_EQ(colour(), Brand::green);
    delegate->setStatus({.ready = false, .text = "two"});
    EXPECT_EQ(colour(), Brand::slate);
}

TEST_F(Status, aReportShowsInTheMenuAndTheToolTip)
{
    launch();
    delegate->setStatus({.ready = true, .text = "whatever"});
    EXPECT_EQ(delegate->menuStatusItem->text(), QStringLiteral("Finder: visible"));
    EXPECT_EQ(delegate->statusItem->toolTip(),
              QStringLiteral("Quillbox Helper — Finder service visible"));
    delegate->setStatus({.ready = false, .text = "Finder visibility is off"});
    EXPECT_EQ(delegate->menuStatusItem->text(), QStringLiteral("Finder: off"));
    EXPECT_EQ(delegate->statusItem->toolTip(),
              QStringLiteral("Quillbox Helper — Finder visibility is off"));
    delegate->setStatus({.ready = false, .text = ""});
    EXPECT_EQ(delegate->statusItem->toolTip(), QStringLiteral("Quillbox Helper — "));
    EXPECT_EQ(statusText(), "");
}

TEST_F(Status, aReportIsPossibleBeforeAnythingIsBuilt)
{
    create();
    delegate->setStatus({.ready = true, .text = "early"});
    EXPECT_EQ(statusText(), "early");
}

TEST_F(Status, everyReportIsOneLineOnStandardError)
{
    create();
    EXPECT_EQ(printedFor({.ready = true, .text = "1 Quillbox device visible in Finder"}),
              "status: ready: 1 Quillbox device visible in Finder\n");
    EXPECT_EQ(printedFor({.ready = false, .text = "Starting Finder service…"}),
              "status: not ready: Starting Finder service…\n");
    EXPECT_EQ(printedFor({.ready = false, .text = ""}), "status: not ready: \n");
}

TEST_F(Status, noReportReachesTheTerminalWithControlCharacters)
{
    create();
    EXPECT_EQ(printedFor({.ready = true, .text = "a\x1b[2Jb\nc\td\u009b\u202e\x7f"}),
              "status: ready: a\uFFFD[2Jb\uFFFDc\uFFFDd\uFFFD\uFFFD\uFFFD\n");
}

TEST_F(Status, textsAreNeverReadAsMarkup)
{
    create();
    EXPECT_EQ(delegate->statusLabel.textFormat(), Qt::PlainText);
    EXPECT_EQ(delegate->statusDot.textFormat(), Qt::PlainText);
}

} // namespace

} // namespace quillbox
