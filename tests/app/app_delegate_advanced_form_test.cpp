#include "tests/app/window_fixture.h"
#include "ui/look/brand.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace quillbox {

namespace {

class AdvancedForm : public WindowFixture {
protected:
    void unfold()
    {
        open();
        delegate->toggleAdvanced();
        // High enough for all distances to have their usual sizes.
        setContentSize({440, 600});
    }

    QLabel& note() const
    {
        return *label(QStringLiteral("Normally no action is needed here. Quillbox appears in "
                                     "Finder automatically while this helper is running."));
    }

    QPushButton& restart() const { return *button(QStringLiteral("Restart service")); }
    QPushButton& openInFinder() const { return *button(QStringLiteral("Open in Finder")); }

    /// The first and the last column in which anything but the colour of the middle row's first
    /// pixel is painted, other than in the `margin` on both sides.
    static std::pair<int, int> paintedColumns(const QImage& picture, int margin = 0)
    {
        const QColor background = picture.pixelColor(margin, picture.height() / 2);
        int first = picture.width();
        int last = -1;
        for (int x = margin; x < picture.width() - margin; ++x) {
            for (int y = margin; y < picture.height() - margin; ++y) {
                if (picture.pixelColor(x, y) != background) {
                    first = std::min(first, x);
                    last = x;
                }
            }
        }
        return {first, last};
    }
};

TEST_F(AdvancedForm, theTextOfAFieldKeepsAwayFromTheBorder)
{
    unfold();
    for (QLineEdit* field : {&delegate->hostField, &delegate->userField}) {
        field->setText(QStringLiteral("HHH"));
        EXPECT_GE(paintedColumns(pictureOf(*field), 2).first, 1 + 4);
    }
}

TEST_F(AdvancedForm, aLabelThatIsCutOffStandsAgainstItsFieldToo)
{
    unfold();
    QLabel& text = *label(QStringLiteral("Phone IP or name"));
    for (int width = 50; width < 70; ++width) {
        text.setFixedWidth(width);
        EXPECT_GE(paintedColumns(pictureOf(text)).second, width - 3) << width;
    }
}

TEST_F(AdvancedForm, theDistanceOfTheButtonsDoesNotGiveWay)
{
    unfold();
    setContentSize({440, 480});
    ASSERT_LT(place(note()).top(), place(openInFinder()).bottom() + 1 + 10);
    EXPECT_EQ(place(openInFinder()).left(), place(restart()).right() + 1 + 10);
}

TEST_F(AdvancedForm, theFieldsShowWhatTheyAreFor)
{
    unfold();
    EXPECT_EQ(delegate->hostField.placeholderText(), QStringLiteral("192.168.1.20"));
    EXPECT_EQ(delegate->portField.placeholderText(), QStringLiteral("4445"));
    EXPECT_EQ(delegate->shareField.placeholderText(), QStringLiteral("NAS"));
    EXPECT_EQ(delegate->userField.placeholderText(), QStringLiteral("nas"));
    const QColor faint = delegate->userField.palette().color(QPalette::PlaceholderText);
    EXPECT_NEAR(faint.alphaF(), 0.75, 0.01) << "not mistaken for a text";
}

TEST_F(AdvancedForm, theLabelsStandRightAlignedAgainstTheirFields)
{
    unfold();
    const std::pair<const char*, QLineEdit*> entries[] = {
        {"Phone IP or name", &delegate->hostField},
        {"SMB port", &delegate->portField},
        {"Default share", &delegate->shareField},
        {"Username", &delegate->userField}};
    int bottom = 0;
    for (const auto& [text, field] : entries) {
        const QLabel* found = label(QString::fromUtf8(text));
        ASSERT_TRUE(found) << text;
        EXPECT_EQ(writingOf(*found), (Writing{12, 500, kNavy})) << text;
        EXPECT_EQ(place(*field).width(), 230) << text;
        EXPECT_EQ(place(*field).left(), place(*found).right() + 1 + 12) << text;
        EXPECT_LE(std::abs(place(*field).center().y() - place(*found).center().y()), 1) << text;
        if (bottom > 0) {
            EXPECT_EQ(place(*field).top(), bottom + 1 + 8) << text;
        }
        bottom = place(*field).bottom();
    }
    EXPECT_EQ(place(*label(QStringLiteral("Phone IP or name"))).left(), 22 + 18);
}

TEST_F(AdvancedForm, standsInOrderAndAtItsDistance)
{
    unfold();
    EXPECT_EQ(place(delegate->automaticDiscovery).top(),
              place(delegate->advancedButton).bottom() + 1 + 11);
    EXPECT_EQ(place(delegate->automaticDiscovery).left(), place(*delegate->advancedForm).left());
    EXPECT_EQ(place(delegate->hostField).top(),
              place(delegate->automaticDiscovery).bottom() + 1 + 10);
    EXPECT_EQ(place(openInFinder()).top(), place(delegate->userField).bottom() + 1 + 10);
    EXPECT_EQ(place(note()).top(), place(openInFinder()).bottom() + 1 + 10);
    EXPECT_EQ(note().width(), 350);
    EXPECT_EQ(writingOf(note()), (Writing{10, 400, kSlate}));
}

TEST_F(AdvancedForm, theButtonsStandSideBySide)
{
    unfold();
    EXPECT_EQ(place(restart()).left(), 22 + 18);
    EXPECT_EQ(restart().width(), restart().sizeHint().width());
    EXPECT_EQ(place(openInFinder()).left(), place(restart()).right() + 1 + 10);
    EXPECT_EQ(place(openInFinder()).center().y(), place(restart()).center().y());
    EXPECT_EQ(openInFinder().size(), QSize(142, 34));
}

TEST_F(AdvancedForm, openInFinderIsWhiteOnBlueWithRoundCorners)
{
    unfold();
    EXPECT_EQ(openInFinder().font().pixelSize(), 13);
    EXPECT_EQ(openInFinder().font().weight(), QFont::DemiBold);
    const QImage picture = pictureOf(openInFinder());
    EXPECT_EQ(picture.pixelColor(0, 17), Brand::blue);
    EXPECT_EQ(picture.pixelColor(141, 17), Brand::blue);
    EXPECT_EQ(picture.pixelColor(71, 0), Brand::blue);
    EXPECT_EQ(picture.pixelColor(9, 0), Brand::blue);
    EXPECT_NE(picture.pixelColor(1, 1), Brand::blue);
    int white = 0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 20; x < picture.width() - 20; ++x)
            white += picture.pixelColor(x, y) == QColor(Qt::white) ? 1 : 0;
    EXPECT_GT(white, 30) << "the title";
}

TEST_F(AdvancedForm, openInFinderAnswersToThePointer)
{
    unfold();
    const QColor atRest = pictureOf(openInFinder()).pixelColor(8, 17);
    openInFinder().setDown(true);
    const QColor pressed = pictureOf(openInFinder()).pixelColor(8, 17);
    openInFinder().setDown(false);
    EXPECT_EQ(atRest, Brand::blue);
    EXPECT_LT(pressed.lightness(), atRest.lightness());
    EXPECT_EQ(pictureOf(openInFinder()).pixelColor(8, 17), atRest);
}

TEST_F(AdvancedForm, endingAnEditIsNewsInTheFirstTwoFieldsOnly)
{
    launchManually();
    delegate->toggleAdvanced();
    settle();
    const auto restarts = [this](QLineEdit& field) {
        const auto before = network.listeners.size();
        field.setFocus();
        press(field, Qt::Key_Return);
        dispatch.runAll();
        return network.listeners.size() > before;
    };
    EXPECT_TRUE(restarts(delegate->hostField));
    EXPECT_TRUE(restarts(delegate->portField));
    EXPECT_FALSE(restarts(delegate->shareField));
    EXPECT_FALSE(restarts(delegate->userField));
}

/// Assistive technologies press the button without moving the focus to it.
TEST_F(AdvancedForm, foldingItMovesTheFocusFromItToTheButton)
{
    unfold();
    for (const bool isActive : {true, false}) {
        delegate->portField.setFocus();
        if (!isActive)
            activateAnother();
        delegate->toggleAdvanced();
        settle();
        if (!isActive)
            activate();
        EXPECT_TRUE(delegate->advancedButton.hasFocus()) << isActive;
        delegate->toggleAdvanced();
        settle();
        EXPECT_TRUE(delegate->advancedButton.hasFocus()) << isActive;
    }
}

TEST_F(AdvancedForm, foldingItLeavesTheFocusOfOtherControls)
{
    unfold();
    delegate->showInFinder.setFocus();
    delegate->toggleAdvanced();
    EXPECT_TRUE(delegate->showInFinder.hasFocus());
}

TEST_F(AdvancedForm, tabThroughItInterruptsNothing)
{
    launchManually();
    delegate->toggleAdvanced();
    activate();
    settle();
    const auto relays = runningListeners();
    ASSERT_EQ(relays.size(), 1U);
    for (const bool isBackwards : {false, true}) {
        delegate->advancedButton.setFocus();
        for (int step = 0; step < 12; ++step)
            pressTab(window(), isBackwards);
        dispatch.runAll();
        EXPECT_EQ(runningListeners(), relays);
    }
}

TEST_F(AdvancedForm, itsDestructionInTheMiddleOfAnEditRestartsNothing)
{
    launchManually();
    delegate->toggleAdvanced();
    activate();
    settle();
    delegate->hostField.setFocus();
    delegate->hostField.setText(QStringLiteral("192.0.2.9"));
    const auto before = network.listeners.size();
    delegate = nullptr;
    dispatch.runAll();
    EXPECT_EQ(network.listeners.size(), before);
}

TEST_F(AdvancedForm, isNeverRebuilt)
{
    open();
    const QWidget* form = delegate->advancedForm;
    delegate->hostField.setText(QStringLiteral("192.0.2.9"));
    delegate->toggleAdvanced();
    delegate->toggleAdvanced();
    EXPECT_EQ(delegate->advancedForm, form);
    EXPECT_EQ(delegate->hostField.text(), QStringLiteral("192.0.2.9"));
}

} // namespace

} // namespace quillbox
