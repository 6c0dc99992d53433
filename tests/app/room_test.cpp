#include "tests/app/window_fixture.h"
#include "ui/content_area.h"
#include "ui/frame_sizer.h"

#include <QApplication>
#include <QScrollBar>
#include <QVBoxLayout>
#include <QWindow>
#include <functional>
#include <string>
#include <vector>

namespace quillbox {

namespace {

constexpr int kLargestDecoration = 50;

/// How the content uses the room that decorations leave, with the font of a desktop. A family that
/// is not installed is replaced by the default one.
class Room : public WindowFixture, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override
    {
        before = QApplication::font();
        QFont font = before;
        font.setFamily(QString::fromLatin1(GetParam()));
        QApplication::setFont(font);
    }

    void TearDown() override
    {
        delegate = nullptr;
        QApplication::setFont(before);
    }

    void showPhones(int count)
    {
        std::vector<Endpoint> phones;
        for (int number = 0; number < count; ++number)
            phones.push_back(phoneNamed("Quillbox " + std::to_string(number)));
        findPhones(phones);
        findManagement(phones);
        settle();
    }

    void setStatus(const char* text)
    {
        delegate->setStatus({.ready = false, .text = text});
        settle();
    }

    /// Sets the height of the frame with a decoration that high.
    void decorate(int frame, int decoration) { setContentSize({440, frame - decoration}); }

    QLabel& footnote() const
    {
        return *label(QStringLiteral("No telemetry or cloud service. It only relays Finder SMB "
                                     "traffic directly to your phone while running."));
    }

    QWidget& card() const { return *delegate->showInFinder.parentWidget(); }
    int top() const
    {
        return place(*label(QStringLiteral("Quillbox Helper"))->parentWidget()).top();
    }
    int bottom() const { return area().viewport()->height() - 1 - place(footnote()).bottom(); }
    int aboveCard() const
    {
        const QLabel& subtitle =
            *label(QStringLiteral("Makes your phone easy to find in Finder. Local network only."));
        return place(card()).top() - 1 - place(subtitle).bottom();
    }
    int belowCard() const { return place(footnote()).top() - 1 - place(card()).bottom(); }

    /// With every decoration, and with a status of one line and of two.
    void expectEverythingFitsWith(int phones, int frame)
    {
        showPhones(phones);
        for (const char* status :
             {"Finder visibility is off",
              "Could not resolve management address. Check the phone is online."}) {
            setStatus(status);
            for (int decoration = 0; decoration <= kLargestDecoration; ++decoration) {
                decorate(frame, decoration);
                expectEverythingFits(std::to_string(phones) + " phones, "
                                     + std::to_string(decoration) + ", " + status);
            }
        }
    }

    /// Nothing scrolls, is cut off, or touches its neighbour.
    void expectEverythingFits(const std::string& what)
    {
        EXPECT_FALSE(isScrolling()) << what;
        EXPECT_GE(top(), 4) << what;
        EXPECT_GE(bottom(), 2) << what;
        EXPECT_GE(aboveCard(), 2) << what;
        EXPECT_GE(belowCard(), 2) << what;
        EXPECT_EQ(footnote().height(), footnote().heightForWidth(396)) << what;
    }

    QFont before;
};

TEST_P(Room, theFoldedWindowNeverScrolls)
{
    open();
    for (const int count : {0, 1, 2, 15})
        expectEverythingFitsWith(count, count == 0 ? 340 : 360 + 22 * count);
}

TEST_P(Room, norDoesTheUnfoldedWindowBelowItsMaximumHeight)
{
    open();
    delegate->toggleAdvanced();
    for (const int count : {0, 1, 2, 7})
        expectEverythingFitsWith(count, count == 0 ? 520 : 540 + 22 * count);
}

TEST_P(Room, insetsAndSpacingsGiveWayEvenly)
{
    open();
    showPhones(1);
    for (int decoration = 0; decoration <= kLargestDecoration; ++decoration) {
        decorate(382, decoration);
        // Rounding leaves a few pixels at the bottom.
        EXPECT_GE(bottom(), top()) << decoration;
        EXPECT_LE(bottom(), std::max(top() + 4, 32 - decoration)) << decoration;
        EXPECT_EQ(aboveCard(), belowCard()) << decoration;
        EXPECT_LE(std::abs(20 * aboveCard() - 12 * top()), 20) << decoration;
    }
}

TEST_P(Room, unfoldingMovesNothingAboveTheForm)
{
    open();
    for (const int count : {0, 1, 9}) {
        showPhones(count);
        for (const int decoration : {0, 22, 37, 50}) {
            decorate(count == 0 ? 340 : 360 + 22 * count, decoration);
            const QRect usual = place(delegate->advancedButton);
            delegate->toggleAdvanced();
            decorate(std::min(count == 0 ? 520 : 540 + 22 * count, 700), decoration);
            EXPECT_EQ(place(delegate->advancedButton).topLeft(), usual.topLeft())
                << count << ' ' << decoration;
            delegate->toggleAdvanced();
            settle();
        }
    }
}

TEST_P(Room, whatScrollsHasItsUsualDistances)
{
    open();
    delegate->toggleAdvanced();
    showPhones(20);
    decorate(700, 22);
    ASSERT_TRUE(isScrolling());
    EXPECT_EQ(top(), 20);
    EXPECT_EQ(aboveCard(), 12);
    EXPECT_EQ(place(delegate->portField).top() - place(delegate->hostField).bottom() - 1, 8);
}

TEST_P(Room, theContentHasItsFinalDistancesFromTheStartOfAnAnimation)
{
    open();
    showPhones(1);
    delegate->toggleAdvanced();
    QVariantAnimation& animation = delegate->frameSizer->animation();
    ASSERT_EQ(animation.state(), QAbstractAnimation::Running);
    animation.setCurrentTime(20);
    layOut();
    const QRect early = place(footnote());
    settle();
    EXPECT_EQ(place(footnote()), early);
}

INSTANTIATE_TEST_SUITE_P(Fonts, Room, ::testing::Values("DejaVu Sans", "Noto Sans", "Cantarell"),
                         [](const auto& font) {
                             const std::string family = font.param;
                             return family.substr(0, family.find(' '));
                         });

class Decoration : public ::testing::Test {
protected:
    static int heightWithin(int frame, Qt::WindowFlags flags, FrameSizer::Reported reported)
    {
        QWidget window(nullptr, flags);
        FrameSizer& sizer = *new FrameSizer(window, reported);
        window.show();
        sizer.setFrameSize({440, frame});
        sizer.animation().setCurrentTime(sizer.animation().totalDuration());
        QCoreApplication::processEvents();
        return window.height();
    }
};

TEST_F(Decoration, ofAnUnreportedSizeIsAssumedToBeAUsualTitleBar)
{
    EXPECT_EQ(heightWithin(382, Qt::FramelessWindowHint, FrameSizer::Reported::AsOnWayland),
              382 - FrameSizer::kUsualTitleBar);
}

TEST_F(Decoration, isNoneWhereTheToolkitKnowsThatThereIsNone)
{
    EXPECT_EQ(heightWithin(382, Qt::FramelessWindowHint, FrameSizer::Reported::Exactly), 382);
}

TEST_F(Decoration, aSizeThatTheCompositorSentLateDoesNotStay)
{
    QWidget window(nullptr, Qt::FramelessWindowHint);
    FrameSizer& sizer = *new FrameSizer(window, FrameSizer::Reported::Exactly);
    window.show();
    sizer.setFrameSize({440, 562});
    sizer.animation().setCurrentTime(sizer.animation().totalDuration());
    window.windowHandle()->resize(440, 442);
    QCoreApplication::processEvents();
    EXPECT_EQ(window.size(), QSize(440, 562));
}

TEST_F(Decoration, aSizeThatTheCompositorInsistsOnIsLeft)
{
    QWidget window(nullptr, Qt::FramelessWindowHint);
    FrameSizer& sizer = *new FrameSizer(window, FrameSizer::Reported::Exactly);
    window.show();
    sizer.setFrameSize({440, 562});
    sizer.animation().setCurrentTime(sizer.animation().totalDuration());
    for (int time = 0; time < 10; ++time) {
        window.windowHandle()->resize(440, 442);
        QCoreApplication::processEvents();
    }
    EXPECT_EQ(window.size(), QSize(440, 442));

    sizer.setFrameSize({440, 500});
    sizer.animation().setCurrentTime(sizer.animation().totalDuration());
    window.windowHandle()->resize(440, 442);
    QCoreApplication::processEvents();
    EXPECT_EQ(window.size(), QSize(440, 500)) << "it does not insist on the next one yet";
}

TEST_F(Decoration, thatIsReportedCountsEverywhere)
{
    // The offscreen platform adds two pixels on each side.
    EXPECT_EQ(heightWithin(382, Qt::Window, FrameSizer::Reported::AsOnWayland), 382 - 4);
    EXPECT_EQ(heightWithin(382, Qt::Window, FrameSizer::Reported::Exactly), 382 - 4);
}

TEST_F(Decoration, isReportedWithItsShadowOnWayland)
{
    // What Qt 6.8 reports on GNOME: a border of 1, a title bar of 38, and the shadow.
    const QMargins adwaita(11, 49, 11, 11);
    EXPECT_EQ(FrameSizer::visibleSize(adwaita, FrameSizer::Reported::AsOnWayland), QSize(2, 40));
    EXPECT_EQ(FrameSizer::visibleSize(adwaita, FrameSizer::Reported::Exactly), QSize(22, 60));
    // What older versions report.
    const QMargins plain(3, 30, 3, 3);
    EXPECT_EQ(FrameSizer::visibleSize(plain, FrameSizer::Reported::AsOnWayland), QSize(6, 33));
    const QMargins widest(10, 40, 10, 10);
    EXPECT_EQ(FrameSizer::visibleSize(widest, FrameSizer::Reported::AsOnWayland), QSize(20, 50));
    const QMargins uneven(12, 40, 12, 3);
    EXPECT_EQ(FrameSizer::visibleSize(uneven, FrameSizer::Reported::AsOnWayland), QSize(24, 43));
}

/// An area with a distance of 100 pixels above a part that is 100 pixels high.
class Distance : public ::testing::Test {
protected:
    Distance()
    {
        area.setParent(&window);
        part.setFixedSize(50, 100);
        inFold.setContentsMargins(0, 0, 0, 0);
        inFold.addWidget(&part);
        area.column().addWidget(&fold);
        window.show();
    }

    /// Adds the distance, at the top of that layout.
    void add(QLayout& layout, ContentArea::GivesWay givesWay)
    {
        distance = [&layout] { return layout.contentsMargins().top(); };
        area.addGap({.usual = 100, .givesWay = givesWay, .set = [this, &layout](int top) {
                         ++changes;
                         QMargins margins = layout.contentsMargins();
                         margins.setTop(top);
                         layout.setContentsMargins(margins);
                     }});
    }

    /// The distance in an area of that height, before any event is handled.
    int at(int height)
    {
        area.resize(80, height);
        isScrolling = area.verticalScrollBar()->maximum() > 0;
        return distance();
    }

    QWidget window;
    ContentArea& area = *new ContentArea;
    QWidget& fold = *new QWidget;
    QVBoxLayout& inFold = *new QVBoxLayout(&fold);
    QWidget& part = *new QWidget;
    std::function<int()> distance;
    int changes = 0;
    bool isScrolling = false;
};

TEST_F(Distance, givesWayToATitleBarUpToAQuarterOfItself)
{
    add(area.column(), ContentArea::GivesWay::ToTitleBar);
    EXPECT_EQ(at(200), 100);
    EXPECT_EQ(changes, 1) << "the first one";
    EXPECT_EQ(at(150), 50);
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(at(125), 25);
    EXPECT_FALSE(isScrolling);
    EXPECT_EQ(at(124), 100);
    EXPECT_TRUE(isScrolling);
}

TEST_F(Distance, givesWayToTheFoldUpToTwoFifthsOfItself)
{
    area.setFold(fold);
    add(inFold, ContentArea::GivesWay::InsideFold);
    EXPECT_EQ(at(200), 100);
    EXPECT_EQ(at(140), 40);
    EXPECT_FALSE(isScrolling);
    EXPECT_EQ(at(139), 100);
    EXPECT_TRUE(isScrolling);
}

TEST_F(Distance, isRoundedSoThatNoRoomIsLost)
{
    int above = 0;
    int below = 0;
    QVBoxLayout& column = area.column();
    area.addGap({.usual = 20, .set = [&](int size) {
                     above = size;
                     column.setContentsMargins(0, above, 0, below);
                 }});
    area.addGap({.usual = 12, .set = [&](int size) {
                     below = size;
                     column.setContentsMargins(0, above, 0, below);
                 }});
    area.resize(50, 100 + 15);
    EXPECT_EQ(above, 9);
    EXPECT_EQ(below, 6);
}

TEST_F(Distance, thatGivesWayCausesNoScrollingInBetween)
{
    area.setFold(fold);
    add(inFold, ContentArea::GivesWay::InsideFold);
    for (int height = 200; height >= 140; --height) {
        EXPECT_EQ(at(height), height - 100);
        EXPECT_FALSE(isScrolling) << height;
    }
}

} // namespace

} // namespace quillbox
