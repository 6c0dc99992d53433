#include "tests/app/window_fixture.h"
#include "ui/look/brand.h"
#include "ui/paragraph_label.h"
#include "ui/shown_text.h"

#include <QApplication>
#include <QLayout>
#include <QMouseEvent>
#include <QPointer>
#include <utility>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::_;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Pair;

const char* const kGreen = "#16a34a";
class DeviceList : public WindowFixture {
protected:
    int viewCount() const { return delegate->deviceListStack.layout()->count(); }

    QWidget& view(int index) const
    {
        return *delegate->deviceListStack.layout()->itemAt(index)->widget();
    }

    static std::vector<Endpoint> phonesNumbered(int count)
    {
        std::vector<Endpoint> phones;
        for (int number = 1; number <= count; ++number)
            phones.push_back(phoneNamed("Quillbox " + std::to_string(number)));
        return phones;
    }

    /// The widgets of a row, from left to right.
    static std::vector<QWidget*> partsOf(const DeviceRow& row)
    {
        std::vector<QWidget*> parts;
        for (int index = 0; index < row.layout()->count(); ++index) {
            if (QWidget* part = row.layout()->itemAt(index)->widget())
                parts.push_back(part);
        }
        return parts;
    }

    std::vector<std::string> shownNames() const
    {
        std::vector<std::string> names;
        for (const DeviceRow* row : rows())
            names.push_back(static_cast<QLabel*>(partsOf(*row)[1])->text().toStdString());
        return names;
    }

    /// The names stored in the "Manage" buttons of all rows; empty for a row without one.
    std::vector<std::string> managed() const
    {
        std::vector<std::string> names;
        for (const DeviceRow* row : rows()) {
            const QPushButton* button = row->manageButton();
            names.push_back(button ? button->property(AppDelegate::kManagementIdentifier)
                                         .toByteArray()
                                         .toStdString()
                                   : "");
        }
        return names;
    }
};

TEST_F(DeviceList, ofSeveralWebServicesOfOneNameTheFirstCounts)
{
    open();
    // The same name, composed and decomposed.
    findPhones({phoneNamed("Quillbox \u00e9")});
    findManagement({phoneNamed("Quillbox e\u0301"), phoneNamed("Quillbox \u00e9")});
    EXPECT_EQ(rows()[0]->manageButton()->property(AppDelegate::kManagementIdentifier).toByteArray(),
              QByteArray("Quillbox e\u0301"));
}

TEST_F(DeviceList, isHiddenUntilAPhoneIsFound)
{
    launch();
    EXPECT_TRUE(delegate->deviceListStack.isHidden());
    findPhones({phoneNamed("Quillbox")});
    EXPECT_FALSE(delegate->deviceListStack.isHidden());
    findPhones({});
    EXPECT_TRUE(delegate->deviceListStack.isHidden());
    EXPECT_EQ(viewCount(), 0);
}

TEST_F(DeviceList, staysHiddenWhenOnlyManagementIsFound)
{
    open();
    findManagement({phoneNamed("Quillbox")});
    settle();
    EXPECT_TRUE(delegate->deviceListStack.isHidden());
    EXPECT_EQ(viewCount(), 0);
    EXPECT_EQ(window().frameGeometry().height(), 340);
}

TEST_F(DeviceList, everyRedrawLeavesAHeadingAndARowAPhone)
{
    launch();
    for (int redraw = 0; redraw < 3; ++redraw) {
        findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B"), phoneNamed("Quillbox C"),
                    phoneNamed("Printer " + std::to_string(redraw))});
        EXPECT_EQ(viewCount(), 4);
        EXPECT_EQ(
            delegate->deviceListStack.findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly)
                .size(),
            4);
    }
    findPhones({phoneNamed("Quillbox B")});
    EXPECT_EQ(viewCount(), 2);
}

TEST_F(DeviceList, everyRedrawBuildsEveryRowAnew)
{
    launch();
    findPhones({phoneNamed("Quillbox A")});
    const QPointer<QWidget> heading(&view(0));
    const QPointer<QWidget> row(&view(1));
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Printer")});
    EXPECT_NE(&view(0), heading);
    EXPECT_NE(&view(1), row);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(heading.isNull());
    EXPECT_TRUE(row.isNull());
}

TEST_F(DeviceList, showsThePhonesInTheirOrderBelowTheHeading)
{
    launch();
    findPhones({phoneNamed("Quillbox B"), phoneNamed("Quillbox A"), phoneNamed("Quillbox")});
    EXPECT_THAT(shownNames(), ElementsAre("Quillbox", "Quillbox A", "Quillbox B"));
    const auto& heading = dynamic_cast<QLabel&>(view(0));
    EXPECT_EQ(heading.text(), QStringLiteral("AVAILABLE QUILLBOX DEVICES"));
    EXPECT_EQ(writingOf(heading), (Writing{10, 600, kSlate}));
}

TEST_F(DeviceList, theHeadingIsEquallyHighInEveryFont)
{
    open();
    findPhones({phoneNamed("Quillbox")});
    QFont high = view(0).font();
    high.setPixelSize(30);
    view(0).setFont(high);
    settle();
    EXPECT_EQ(view(0).height(), 12);
}

TEST_F(DeviceList, aRowIsWrittenAsItShouldBe)
{
    open();
    findPhones({phoneNamed("Quillbox")});
    settle();
    const auto parts = partsOf(*rows()[0]);
    ASSERT_EQ(parts.size(), 3U);
    EXPECT_EQ(static_cast<QLabel*>(parts[0])->text(), QStringLiteral("●"));
    EXPECT_EQ(writingOf(*parts[0]), (Writing{12, 400, kGreen}));
    EXPECT_EQ(static_cast<QLabel*>(parts[1])->text(), QStringLiteral("Quillbox"));
    EXPECT_EQ(writingOf(*parts[1]), (Writing{12, 500, kNavy}));
    EXPECT_EQ(static_cast<QLabel*>(parts[2])->text(), QStringLiteral("Online"));
    EXPECT_EQ(writingOf(*parts[2]), (Writing{11, 400, kGreen}));
    EXPECT_EQ(pictureOf(*parts[0]).pixelColor(parts[0]->rect().center()), Brand::green);
}

TEST_F(DeviceList, thePartsOfARowStandAtTheirDistance)
{
    open();
    findPhones({phoneNamed("Quillbox"), phoneNamed("Quillbox B")});
    findManagement({phoneNamed("Quillbox"), phoneNamed("Quillbox B")});
    settle();
    for (const DeviceRow* row : rows()) {
        const auto parts = partsOf(*row);
        ASSERT_EQ(parts.size(), 4U);
        EXPECT_EQ(parts[0]->x(), 0);
        for (std::size_t index = 1; index < parts.size(); ++index) {
            EXPECT_EQ(parts[index]->x(), parts[index - 1]->geometry().right() + 1 + 8);
            EXPECT_LE(std::abs(2 * parts[index]->geometry().center().y() + 1 - row->height()), 2);
        }
    }
    EXPECT_EQ(delegate->deviceListStack.layout()->spacing(), 6);
    EXPECT_EQ(rows()[1]->y() - rows()[0]->y(), 22);
    EXPECT_EQ(place(delegate->deviceListStack).top(),
              place(*delegate->statusLabel.parentWidget()).bottom() + 1 + 11);
}

TEST_F(DeviceList, noManageButtonReachesIntoAnotherRow)
{
    open();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    findManagement({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    settle();
    const QRect first = place(*rows()[0]->manageButton());
    const QRect second = place(*rows()[1]->manageButton());
    EXPECT_GT(second.top(), first.bottom());
    EXPECT_TRUE(place(*rows()[0]).contains(first));
    EXPECT_TRUE(place(delegate->deviceListStack).contains(second));
    EXPECT_GT(first.top(), place(view(0)).bottom());
}

TEST_F(DeviceList, aManageButtonComesWithTheWebServiceOfThatName)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    EXPECT_THAT(managed(), ElementsAre("", ""));
    findManagement({phoneNamed("Quillbox B"), phoneNamed("Quillbox C")});
    EXPECT_THAT(managed(), ElementsAre("", "Quillbox B"));
    EXPECT_EQ(rows()[1]->manageButton()->text(), QStringLiteral("Manage"));
    findManagement({});
    EXPECT_THAT(managed(), ElementsAre("", ""));
}

TEST_F(DeviceList, aNameInOtherLettersIsAnotherName)
{
    launch();
    findPhones({phoneNamed("Quillbox Office")});
    findManagement({phoneNamed("Quillbox office")});
    EXPECT_THAT(managed(), ElementsAre(""));
}

TEST_F(DeviceList, anEquivalentNameMatchesAndTheButtonHoldsTheOneOfTheWebService)
{
    launch();
    findPhones({phoneNamed("Quillbox B\u00fcro")});
    findManagement({phoneNamed("Quillbox Bu\u0308ro")});
    EXPECT_THAT(managed(), ElementsAre("Quillbox Bu\u0308ro"));
    findPhones({phoneNamed("Quillbox Bu\u0308ro")});
    findManagement({phoneNamed("Quillbox B\u00fcro")});
    EXPECT_THAT(managed(), ElementsAre("Quillbox B\u00fcro"));
}

TEST_F(DeviceList, twoPhonesOfOneNameHaveAButtonEach)
{
    launch();
    findPhones({phoneNamed("Quillbox", "one"), phoneNamed("Quillbox", "two")});
    findManagement({phoneNamed("Quillbox")});
    EXPECT_THAT(managed(), ElementsAre("Quillbox", "Quillbox"));
}

TEST_F(DeviceList, aManageButtonAsksForThePageOfItsPhone)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    findManagement({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    rows()[1]->manageButton()->click();
    ASSERT_EQ(network.dnsSd().resolutions().size(), 1U);
    EXPECT_EQ(network.dnsSd().resolutions()[0].request.service()->name, "Quillbox B");
}

TEST_F(DeviceList, namesAreShownAsTheyAre)
{
    launch();
    const std::string name = "Quillbox <img src='http://192.0.2.1/x'> & <b>bold</b> _x";
    findPhones({phoneNamed(name)});
    findManagement({phoneNamed(name)});
    EXPECT_THAT(shownNames(), ElementsAre(name));
    EXPECT_THAT(managed(), ElementsAre(name));
    for (const QLabel* label : rows()[0]->findChildren<QLabel*>())
        EXPECT_EQ(label->textFormat(), Qt::PlainText);
}

TEST_F(DeviceList, aHostileNameStaysOnItsLineAndKeepsItsIdentifier)
{
    launch();
    const std::string name = "Quillbox \u202egnp\n\tx\x01";
    findPhones({phoneNamed(name)});
    findManagement({phoneNamed(name)});
    EXPECT_THAT(shownNames(), ElementsAre("Quillbox \uFFFDgnp\uFFFD\uFFFDx\uFFFD"));
    EXPECT_THAT(managed(), ElementsAre(name));
}

TEST_F(DeviceList, aLongNameIsElidedAndNothingGrows)
{
    open();
    const std::string name = "Quillbox " + std::string(54, 'W');
    findPhones({phoneNamed(name)});
    findManagement({phoneNamed(name)});
    settle();
    const auto parts = partsOf(*rows()[0]);
    const auto* label = dynamic_cast<ParagraphLabel*>(parts[1]);
    ASSERT_TRUE(label);
    EXPECT_TRUE(label->isElided());
    EXPECT_EQ(label->toolTip().toStdString(), name);
    EXPECT_EQ(window().frameGeometry().width(), 440);
    EXPECT_EQ(place(*rows()[0]).width(), 360);
    EXPECT_EQ(place(*parts[3]).right(), place(*rows()[0]).right());
    for (std::size_t index : {2U, 3U})
        EXPECT_GE(parts[index]->width(), parts[index]->sizeHint().width());
}

TEST_F(DeviceList, theColumnsLineUp)
{
    open();
    const std::string wide = "Quillbox " + std::string(54, 'W');
    findPhones({phoneNamed("Quillbox"), phoneNamed("Quillbox Office"), phoneNamed(wide)});
    const auto edges = [this](std::size_t column) {
        std::vector<std::pair<int, int>> places;
        for (const DeviceRow* row : rows()) {
            const auto parts = partsOf(*row);
            if (column < parts.size())
                places.emplace_back(place(*parts[column]).left(), place(*parts[column]).right());
        }
        return places;
    };
    const int right = place(delegate->deviceListStack).right();
    settle();
    EXPECT_THAT(edges(2), Each(Pair(_, right))) << "without a button, the state is at the end";
    EXPECT_THAT(edges(2), Each(edges(2)[0]));
    findManagement({phoneNamed("Quillbox"), phoneNamed(wide)});
    settle();
    for (const std::size_t column : {0U, 1U, 2U, 3U})
        EXPECT_THAT(edges(column), Each(edges(column)[0])) << column;
    EXPECT_EQ(edges(2).size(), 3U);
    ASSERT_EQ(edges(3).size(), 2U);
    EXPECT_EQ(edges(3)[0].second, right);
    EXPECT_EQ(edges(3)[0].first, edges(2)[0].second + 1 + 8);
}

TEST_F(DeviceList, aShortNameHasNoToolTip)
{
    open();
    findPhones({phoneNamed("Quillbox")});
    settle();
    EXPECT_EQ(partsOf(*rows()[0])[1]->toolTip(), QString());
}

TEST_F(DeviceList, theFocusStaysWithThePhone)
{
    open();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    findManagement({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    settle();
    rows()[1]->manageButton()->setFocus(Qt::TabFocusReason);
    findPhones({phoneNamed("Quillbox"), phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    settle();
    EXPECT_TRUE(rows()[2]->manageButton()->hasFocus());
    EXPECT_FALSE(rows()[2]->manageButton()->isDown());
}

TEST_F(DeviceList, eachOfTwoPhonesOfOneNameKeepsTheFocus)
{
    open();
    findPhones({phoneNamed("Quillbox", "one"), phoneNamed("Quillbox", "two")});
    findManagement({phoneNamed("Quillbox")});
    settle();
    rows()[1]->manageButton()->setFocus(Qt::TabFocusReason);
    findManagement({phoneNamed("Quillbox")});
    EXPECT_TRUE(rows()[1]->manageButton()->hasFocus());
    EXPECT_FALSE(rows()[0]->manageButton()->hasFocus());
    rows()[0]->manageButton()->setFocus(Qt::TabFocusReason);
    findManagement({phoneNamed("Quillbox")});
    EXPECT_TRUE(rows()[0]->manageButton()->hasFocus());
}

TEST_F(DeviceList, theFocusStaysWithThePhoneWhileTheWindowIsInactive)
{
    open();
    findPhones({phoneNamed("Quillbox B")});
    findManagement({phoneNamed("Quillbox B")});
    settle();
    rows()[0]->manageButton()->setFocus(Qt::TabFocusReason);
    activateAnother();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    settle();
    EXPECT_FALSE(window().isActiveWindow()) << "it must not take the focus from another window";
    activate();
    EXPECT_TRUE(rows()[1]->manageButton()->hasFocus());
}

TEST_F(DeviceList, theFocusStaysWithThePhoneWhileTheWindowIsHidden)
{
    open();
    findPhones({phoneNamed("Quillbox B")});
    findManagement({phoneNamed("Quillbox B")});
    settle();
    rows()[0]->manageButton()->setFocus(Qt::TabFocusReason);
    window().close();
    ASSERT_FALSE(window().isVisible());
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    delegate->showHelper();
    activateAnother();
    activate();
    settle();
    EXPECT_TRUE(rows()[1]->manageButton()->hasFocus());
}

TEST_F(DeviceList, theFocusGoesOnInTheSameWayWhetherTheWindowIsActiveOrNot)
{
    open();
    for (const bool isActive : {true, false}) {
        findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
        findManagement({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
        settle();
        rows()[1]->manageButton()->setFocus(Qt::TabFocusReason);
        if (!isActive)
            activateAnother();
        findPhones({phoneNamed("Quillbox A")});
        settle();
        if (!isActive)
            activate();
        EXPECT_EQ(window().focusWidget(), button(QStringLiteral("Open web management")))
            << isActive;
    }
}

TEST_F(DeviceList, theFocusGoesOnWhenItsPhoneLeaves)
{
    open();
    findPhones({phoneNamed("Quillbox A")});
    findManagement({phoneNamed("Quillbox A")});
    settle();
    rows()[0]->manageButton()->setFocus(Qt::TabFocusReason);
    findPhones({});
    settle();
    ASSERT_TRUE(window().focusWidget());
    EXPECT_TRUE(window().focusWidget()->isVisible());
    EXPECT_TRUE(window().focusWidget()->hasFocus());
}

TEST_F(DeviceList, aRedrawInTheMiddleOfAPressKeepsTheClick)
{
    open();
    findPhones({phoneNamed("Quillbox A")});
    findManagement({phoneNamed("Quillbox A")});
    settle();
    pressPointer(*rows()[0]->manageButton());
    delegate->advancedButton.setFocus();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    settle();
    EXPECT_TRUE(delegate->advancedButton.hasFocus());
    ASSERT_TRUE(rows()[0]->manageButton()->isDown());
    EXPECT_EQ(QWidget::mouseGrabber(), rows()[0]->manageButton()) << "to get the release event";
    releasePointer(*rows()[0]->manageButton());
    EXPECT_EQ(network.dnsSd().resolutions().size(), 1U);
    EXPECT_FALSE(rows()[0]->manageButton()->isDown());
    EXPECT_FALSE(QWidget::mouseGrabber());
}

TEST_F(DeviceList, aKeyAfterAClickDoesNotHoldThePointer)
{
    open();
    findPhones({phoneNamed("Quillbox A")});
    findManagement({phoneNamed("Quillbox A")});
    settle();
    ManageButton& manage = *rows()[0]->manageButton();
    pressPointer(manage);
    releasePointer(manage);
    press(manage, Qt::Key_Space);
    findPhones({phoneNamed("Quillbox A")});
    ASSERT_TRUE(rows()[0]->manageButton()->isDown());
    EXPECT_FALSE(QWidget::mouseGrabber());
}

TEST_F(DeviceList, norDoesAKeyAfterAPressOfAnotherPointerButton)
{
    open();
    findPhones({phoneNamed("Quillbox A")});
    findManagement({phoneNamed("Quillbox A")});
    settle();
    ManageButton& manage = *rows()[0]->manageButton();
    QMouseEvent otherButton(QEvent::MouseButtonPress, QPointF(5, 5),
                            manage.mapToGlobal(QPointF(5, 5)), Qt::RightButton, Qt::RightButton,
                            Qt::NoModifier);
    QApplication::sendEvent(&manage, &otherButton);
    press(manage, Qt::Key_Space);
    findPhones({phoneNamed("Quillbox A")});
    ASSERT_TRUE(rows()[0]->manageButton()->isDown());
    EXPECT_FALSE(QWidget::mouseGrabber());
}

TEST_F(DeviceList, aPressThatLeavesTheNewButtonIsNone)
{
    open();
    findPhones({phoneNamed("Quillbox A")});
    findManagement({phoneNamed("Quillbox A")});
    settle();
    pressPointer(*rows()[0]->manageButton());
    findPhones({phoneNamed("Quillbox A")});
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(rows()[0]->manageButton(), &leave);
    EXPECT_FALSE(rows()[0]->manageButton()->isDown());
    EXPECT_TRUE(network.dnsSd().resolutions().empty());
}

TEST_F(DeviceList, aRedrawFromWithinAClickIsHarmless)
{
    open();
    findPhones({phoneNamed("Quillbox A")});
    findManagement({phoneNamed("Quillbox A")});
    settle();
    QPushButton* button = rows()[0]->manageButton();
    QObject::connect(button, &QPushButton::clicked, button, [this] {
        for (int redraw = 0; redraw < 3; ++redraw)
            delegate->updateDeviceList();
    });
    pressPointer(*button);
    releasePointer(*button);
    settle();
    EXPECT_EQ(viewCount(), 2);
}

/// A layout item that counts how often its layout is activated.
class LayoutCounter final : public QSpacerItem {
public:
    LayoutCounter() : QSpacerItem(0, 0) {}

    void setGeometry(const QRect& place) override
    {
        QSpacerItem::setGeometry(place);
        ++count;
    }

    int count = 0;
};

/// Counts move and resize events of the rows of a list.
class RowWatcher final : public QObject {
public:
    void watch(const std::vector<DeviceRow*>& rows)
    {
        for (DeviceRow* row : rows)
            row->installEventFilter(this);
    }

    bool eventFilter(QObject* /*watched*/, QEvent* event) override
    {
        if (event->type() == QEvent::Move || event->type() == QEvent::Resize)
            ++count;
        return false;
    }

    int count = 0;
};

TEST_F(DeviceList, aRedrawLaysOutOnceHoweverManyPhonesThereAre)
{
    open();
    auto* counter = new LayoutCounter;
    delegate->deviceListStack.parentWidget()->layout()->addItem(counter);
    settle();
    const auto layoutsFor = [&](int count) {
        counter->count = 0;
        findPhones(phonesNumbered(count));
        settle();
        return counter->count;
    };
    // With more phones the height stays at its maximum, so that redraws do not resize the window.
    const int few = layoutsFor(20);
    EXPECT_GT(few, 0);
    EXPECT_LE(layoutsFor(100), few);
    EXPECT_LE(layoutsFor(101), few);
}

TEST_F(DeviceList, everyRowIsPutInItsPlaceOnce)
{
    open();
    findPhones(phonesNumbered(60));
    RowWatcher watcher;
    watcher.watch(rows());
    settle();
    // The scroll bar may appear, which makes the rows narrower.
    EXPECT_LE(watcher.count, 2 * 60);
}

TEST_F(DeviceList, theFocusDoesNotPassByAnotherControl)
{
    open();
    findPhones({phoneNamed("Quillbox A")});
    findManagement({phoneNamed("Quillbox A")});
    settle();
    rows()[0]->manageButton()->setFocus(Qt::TabFocusReason);
    std::vector<QWidget*> visited;
    const auto connection = QObject::connect(qApp, &QApplication::focusChanged, qApp,
                                             [&visited](QWidget* /*old*/, QWidget* now) {
                                                 if (now)
                                                     visited.push_back(now);
                                             });
    findPhones({phoneNamed("Quillbox"), phoneNamed("Quillbox A")});
    settle();
    QObject::disconnect(connection);
    EXPECT_THAT(visited, ElementsAre(rows()[1]->manageButton()));
}

} // namespace

} // namespace quillbox
