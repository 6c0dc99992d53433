#include "tests/app/window_fixture.h"
#include "ui/look/brand.h"
#include "ui/look/helper_style.h"
#include "ui/look/text_style.h"

#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <QLayout>
#include <QLineEdit>
#include <QProxyStyle>
#include <QScrollBar>
#include <cstdlib>
#include <memory>
#include <vector>

namespace quillbox {

namespace {

/// The window's style with other distances between what is in layouts.
class SpaciousStyle final : public QProxyStyle {
public:
    SpaciousStyle() : QProxyStyle(new HelperStyle) {}

    int pixelMetric(PixelMetric metric, const QStyleOption* option,
                    const QWidget* widget) const override
    {
        return metric == PM_LayoutHorizontalSpacing || metric == PM_LayoutVerticalSpacing
                   ? 25
                   : QProxyStyle::pixelMetric(metric, option, widget);
    }
};

class MainWindow : public WindowFixture {
protected:
    /// With so much room that all distances have their usual sizes.
    void openWithRoom()
    {
        open();
        setContentSize({440, 340});
    }

    Writing writingOfLabel(const char* text) const
    {
        const QLabel* found = label(QString::fromUtf8(text));
        return found ? writingOf(*found) : Writing{};
    }

    /// The colour of the content at a point.
    QColor colourAt(const QPoint& point) const
    {
        return pictureOf(*area().widget()).pixelColor(point);
    }

    QWidget& card() const { return *delegate->showInFinder.parentWidget(); }
    QWidget& statusBox() const { return *delegate->statusDot.parentWidget(); }
    QWidget& header() const { return *label(QStringLiteral("Quillbox Helper"))->parentWidget(); }
    QWidget& subtitle() const
    {
        return *label(
            QStringLiteral("Makes your phone easy to find in Finder. Local network only."));
    }
    QWidget& footnote() const
    {
        return *label(QStringLiteral("No telemetry or cloud service. It only relays Finder SMB "
                                     "traffic directly to your phone while running."));
    }
};

TEST_F(MainWindow, holdsEveryControl)
{
    launch();
    for (const QWidget* control : std::vector<const QWidget*>{
             &delegate->showInFinder, &delegate->automaticDiscovery, &delegate->statusDot,
             &delegate->statusLabel, &delegate->deviceListStack, &delegate->advancedButton,
             &delegate->hostField, &delegate->portField, &delegate->shareField,
             &delegate->userField})
        EXPECT_EQ(control->window(), delegate->window.get());
}

TEST_F(MainWindow, isTitledAndCanBeClosedAndMinimisedOnly)
{
    launch();
    EXPECT_EQ(window().windowTitle(), QStringLiteral("Quillbox Helper"));
    const Qt::WindowFlags flags = window().windowFlags();
    EXPECT_TRUE(flags.testFlag(Qt::WindowTitleHint));
    EXPECT_TRUE(flags.testFlag(Qt::WindowCloseButtonHint));
    EXPECT_TRUE(flags.testFlag(Qt::WindowMinimizeButtonHint));
    EXPECT_FALSE(flags.testFlag(Qt::WindowMaximizeButtonHint));
    EXPECT_EQ(window().minimumSize(), window().maximumSize());
}

TEST_F(MainWindow, isNotShownByBeingBuilt)
{
    create();
    delegate->buildWindow();
    EXPECT_FALSE(window().isVisible());
    EXPECT_EQ(window().size(), QSize(440, 340));
}

TEST_F(MainWindow, closingItOnlyHidesIt)
{
    open();
    EXPECT_FALSE(window().close()) << "refused, so that the toolkit does not end the program";
    EXPECT_FALSE(window().isVisible());
    EXPECT_EQ(terminations, 0);
}

TEST_F(MainWindow, comesToTheFrontOfTheOtherWindows)
{
    open();
    activateAnother();
    const EventCounter raised(window(), QEvent::ZOrderChange);
    delegate->showHelper();
    QCoreApplication::processEvents();
    EXPECT_EQ(raised.count, 1);
    EXPECT_TRUE(window().isActiveWindow());
}

TEST_F(MainWindow, everyTextIsWrittenAsItShouldBe)
{
    open();
    EXPECT_EQ(writingOfLabel("Quillbox Helper"), (Writing{25, 700, kNavy}));
    EXPECT_EQ(writingOf(subtitle()), (Writing{12, 400, kSlate}));
    EXPECT_EQ(writingOf(footnote()), (Writing{10, 400, kSlate}));
    EXPECT_EQ(writingOf(delegate->statusDot), (Writing{13, 400, kSlate}));
    EXPECT_EQ(writingOf(delegate->statusLabel), (Writing{12, 500, kSlate}));
    EXPECT_EQ(writingOf(delegate->advancedButton), (Writing{13, 400, kSlate}));
}

TEST_F(MainWindow, aLineOfCreditStandsBelowTheTitle)
{
    open();
    const auto labels = header().findChildren<QLabel*>();
    ASSERT_EQ(labels.size(), 2);
    EXPECT_FALSE(labels[1]->text().isEmpty());
    EXPECT_EQ(writingOf(*labels[1]), (Writing{11, 500, kSlate}));
    EXPECT_EQ(labels[1]->x(), labels[0]->x());
    EXPECT_EQ(labels[1]->y(), labels[0]->geometry().bottom() + 1 + 1);
}

TEST_F(MainWindow, theWidthsFitOneAnother)
{
    openWithRoom();
    for (const QWidget* part : {&header(), &subtitle(), &card(), &footnote()}) {
        EXPECT_EQ(part->width(), 396);
        EXPECT_EQ(place(*part).left(), 22);
    }
    EXPECT_EQ(statusBox().width(), 360);
    EXPECT_EQ(place(statusBox()).left(), 22 + 18);
}

TEST_F(MainWindow, everythingStandsInOrderAndAtItsDistance)
{
    openWithRoom();
    EXPECT_EQ(place(header()).top(), 20);
    EXPECT_EQ(header().height(), 58);
    EXPECT_EQ(place(subtitle()).top(), place(header()).bottom() + 1 + 12);
    EXPECT_EQ(place(card()).top(), place(subtitle()).bottom() + 1 + 12);
    EXPECT_EQ(place(footnote()).top(), place(card()).bottom() + 1 + 12);

    EXPECT_EQ(place(delegate->showInFinder).topLeft(), place(card()).topLeft() + QPoint(18, 16));
    const std::vector<const QWidget*> parts{&delegate->showInFinder, &statusBox(),
                                            button(QStringLiteral("Open web management")),
                                            &delegate->advancedButton};
    for (std::size_t index = 1; index < parts.size(); ++index) {
        EXPECT_EQ(place(*parts[index]).top(), place(*parts[index - 1]).bottom() + 1 + 11) << index;
        EXPECT_EQ(place(*parts[index]).left(), 22 + 18) << index;
    }
    EXPECT_EQ(place(card()).bottom(), place(delegate->advancedButton).bottom() + 16);
}

TEST_F(MainWindow, noDistanceIsOneOfTheStyle)
{
    open();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    findManagement({phoneNamed("Quillbox A")});
    delegate->toggleAdvanced();
    settle();
    const auto places = [this] {
        std::vector<QRect> all;
        for (const auto* part : area().widget()->findChildren<QWidget*>()) {
            if (part->isVisible())
                all.push_back(place(*part));
        }
        return all;
    };
    const std::vector<QRect> before = places();
    QApplication::setStyle(new SpaciousStyle);
    settle();
    EXPECT_EQ(places(), before);
}

TEST_F(MainWindow, isAsWideInANarrowFrame)
{
    open();
    setContentSize({360, 340});
    EXPECT_EQ(place(card()), QRect(place(card()).topLeft(), QSize(396, card().height())));
    EXPECT_EQ(place(card()).left(), 0);
    EXPECT_GE(area().widget()->width(), 396);
    EXPECT_FALSE(area().horizontalScrollBar()->isVisible());
}

TEST_F(MainWindow, selectedTextIsWhiteOnBlue)
{
    open();
    delegate->toggleAdvanced();
    settle();
    QLineEdit& field = delegate->hostField;
    field.setText(QStringLiteral("HHHH"));
    field.setFocus();
    field.selectAll();
    const QImage picture = pictureOf(field);
    int blue = 0;
    int white = 0;
    for (int x = 8; x < 8 + widthOf(QStringLiteral("HHH"), field.font()); ++x) {
        blue += picture.pixelColor(x, 5) == Brand::blue ? 1 : 0;
        white += picture.pixelColor(x, 11).lightness() > 230 ? 1 : 0;
    }
    EXPECT_GT(blue, 0);
    EXPECT_GT(white, 0);
}

TEST_F(MainWindow, theStatusStandsInItsBoxAtItsDistance)
{
    open();
    const QRect inner = QRect(QPoint(), statusBox().size()).adjusted(13, 10, -13, -10);
    EXPECT_EQ(delegate->statusDot.x(), inner.left());
    EXPECT_EQ(delegate->statusLabel.x(), delegate->statusDot.geometry().right() + 1 + 9);
    EXPECT_EQ(delegate->statusLabel.y(), inner.top());
    EXPECT_EQ(delegate->statusLabel.geometry().bottomRight(), inner.bottomRight());
    EXPECT_EQ(delegate->statusDot.geometry().center().y(),
              delegate->statusLabel.geometry().center().y());
}

TEST_F(MainWindow, isPaintedInTheColoursOfTheBrand)
{
    open();
    EXPECT_EQ(colourAt({3, 3}), Brand::surface);
    EXPECT_EQ(colourAt(place(card()).center() + QPoint(160, 50)), QColor(Qt::white));
    EXPECT_EQ(colourAt({place(card()).left(), place(card()).center().y()}), Brand::border);
    EXPECT_EQ(colourAt({place(card()).left() + 1, place(card()).center().y()}), QColor(Qt::white));
    EXPECT_EQ(colourAt(place(card()).topLeft()), Brand::surface) << "the corner is round";
    EXPECT_EQ(colourAt({place(card()).left() + 16, place(card()).top()}), Brand::border);
    const QRect box = place(statusBox());
    EXPECT_EQ(colourAt(box.center() + QPoint(150, 0)), Brand::pale);
    EXPECT_EQ(colourAt({box.left(), box.center().y()}), Brand::border);
    EXPECT_EQ(colourAt({box.left() + 1, box.center().y()}), Brand::pale);
    EXPECT_EQ(colourAt({box.left() + 10, box.top()}), Brand::border);
    EXPECT_EQ(colourAt(box.topLeft()), QColor(Qt::white)) << "the corner is round";
    EXPECT_EQ(colourAt(place(delegate->statusDot).center()), Brand::slate);
}

TEST_F(MainWindow, theHeaderShowsTheIcon)
{
    openWithRoom();
    QWidget* icon = header().childAt(29, 29);
    ASSERT_TRUE(icon);
    EXPECT_EQ(icon->size(), QSize(58, 58));
    EXPECT_EQ(icon->pos(), QPoint(0, 0));
    EXPECT_EQ(place(*label(QStringLiteral("Quillbox Helper"))).left(), 22 + 58 + 16);
    const QColor middle = pictureOf(header()).pixelColor(29, 29);
    EXPECT_NE(middle, Brand::surface);
}

TEST_F(MainWindow, theTitlesStandBesideTheMiddleOfTheIcon)
{
    openWithRoom();
    const auto titles = header().findChildren<QLabel*>();
    ASSERT_EQ(titles.size(), 2);
    const int below = header().height() - 1 - titles[1]->geometry().bottom();
    EXPECT_LE(std::abs(titles[0]->y() - below), 1);
}

TEST_F(MainWindow, noTextIsTakenForMarkup)
{
    open();
    findPhones({phoneNamed("Quillbox")});
    for (const auto* text : window().findChildren<QLabel*>())
        EXPECT_EQ(text->textFormat(), Qt::PlainText) << text->text().toStdString();
}

TEST_F(MainWindow, webManagementHasItsToolTip)
{
    open();
    EXPECT_EQ(button(QStringLiteral("Open web management"))->toolTip(),
              QStringLiteral("Enable web management for an SMB user on the phone first"));
}

TEST_F(MainWindow, theButtonsDoWhatTheySay)
{
    launchManually();
    settle();
    button(QStringLiteral("Open web management"))->click();
    EXPECT_TRUE(window().findChild<QDialog*>());
    delegate->advancedButton.click();
    settle();
    button(QStringLiteral("Open in Finder"))->click();
    EXPECT_EQ(workspace.opened.size(), 1U);
    delegate->showInFinder.setChecked(false);
    button(QStringLiteral("Restart service"))->click();
    EXPECT_TRUE(delegate->showInFinder.isChecked());
}

TEST_F(MainWindow, theAdvancedFormFoldsAndUnfolds)
{
    launch();
    EXPECT_FALSE(delegate->advancedForm->isVisible());
    EXPECT_EQ(delegate->advancedButton.text(), QStringLiteral("Advanced ▸"));
    delegate->advancedButton.click();
    EXPECT_TRUE(delegate->advancedVisible);
    EXPECT_TRUE(delegate->advancedForm->isVisible());
    EXPECT_EQ(delegate->advancedButton.text(), QStringLiteral("Advanced ▾"));
    delegate->advancedButton.click();
    EXPECT_FALSE(delegate->advancedVisible);
    EXPECT_FALSE(delegate->advancedForm->isVisible());
    EXPECT_EQ(delegate->advancedButton.text(), QStringLiteral("Advanced ▸"));
}

TEST_F(MainWindow, foldingTwiceLeavesThePictureAsItWas)
{
    open();
    const QRect frame = window().frameGeometry();
    const QImage before = pictureOf(window());
    delegate->toggleAdvanced();
    settle();
    EXPECT_NE(pictureOf(window()), before);
    delegate->toggleAdvanced();
    settle();
    EXPECT_EQ(window().frameGeometry(), frame);
    EXPECT_EQ(pictureOf(window()), before);
}

TEST_F(MainWindow, settingACheckBoxFromTheProgramIsNoClick)
{
    launch();
    delegate->showInFinder.setChecked(false);
    delegate->automaticDiscovery.setChecked(false);
    EXPECT_TRUE(defaults.writes.empty());
}

TEST_F(MainWindow, aFieldWithTheFocusEndsNoEditWhenEverythingEnds)
{
    launchManually();
    activate();
    delegate->toggleAdvanced();
    settle();
    delegate->hostField.setFocus();
    ASSERT_TRUE(delegate->hostField.hasFocus());
    const auto started = network.listeners.size();
    delegate = nullptr;
    EXPECT_EQ(network.listeners.size(), started);
}

TEST_F(MainWindow, aWrappingLabelIsPlainAndHasNoWidthOfItsOwn)
{
    const QString text(QStringLiteral("<b>One</b> line, as long as nobody says how wide &it is"));
    const std::unique_ptr<QLabel> alone(AppDelegate::wrappingLabel(text, 12, Brand::navy));
    EXPECT_EQ(writingOf(*alone), (Writing{12, 400, kNavy}));
    EXPECT_EQ(alone->textFormat(), Qt::PlainText);
    EXPECT_EQ(alone->text(), text);
    EXPECT_EQ(alone->textInteractionFlags() & Qt::TextEditable, Qt::NoTextInteraction);
    EXPECT_EQ(alone->maximumWidth(), QWIDGETSIZE_MAX);
    EXPECT_GE(alone->sizeHint().width(), QFontMetrics(alone->font()).horizontalAdvance(text));
}

} // namespace

} // namespace quillbox
