#include "tests/app/app_fixture.h"

#include <QApplication>
#include <QCursor>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPointer>
#include <QPushButton>
#include <QStyle>
#include <QTimer>
#include <QTimerEvent>
#include <QWindow>
#include <initializer_list>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class WebManagement : public AppFixture {
protected:
    ~WebManagement() override { QCursor::setPos(0, 0); }

    static Endpoint adminNamed(const std::string& name)
    {
        return ServiceEndpoint{.name = name, .type = "_quillbox-admin._tcp", .domain = "local"};
    }

    void launchWithPages(const std::vector<Endpoint>& pages)
    {
        launch();
        findManagement(pages);
    }

    /// Deletes what was closed, which the event loop does otherwise. Handles no other events: on
    /// the offscreen platform, closing a popup deactivates the program, which closes the next
    /// popup.
    static void settle() { QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    template <class Child> QList<Child*> children() const
    {
        return delegate->window->findChildren<Child*>();
    }

    QMessageBox& alert() const { return *children<QMessageBox>().at(0); }
    QMenu& menu() const { return *children<QMenu>().at(0); }

    static void press(QWidget& widget, int key)
    {
        for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
            QKeyEvent event(type, key, Qt::NoModifier);
            QApplication::sendEvent(&widget, &event);
        }
    }

    /// Moves the pointer before, as Qt ignores a click where the menu popped up under the pointer.
    static void click(QMenu& menu, const QPoint& position)
    {
        for (int step = 8; step >= 0; --step) {
            const QPoint on(position.x() - step, position.y());
            QMouseEvent event(QEvent::MouseMove, on, menu.mapToGlobal(on), Qt::NoButton,
                              Qt::NoButton, Qt::NoModifier);
            QApplication::sendEvent(&menu, &event);
        }
        for (const auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
            QMouseEvent event(type, position, menu.mapToGlobal(position), Qt::LeftButton,
                              type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton,
                              Qt::NoModifier);
            QApplication::sendEvent(&menu, &event);
        }
    }

    static std::vector<std::string> titlesOf(const QMenu& menu)
    {
        std::vector<std::string> titles;
        for (const QAction* action : menu.actions())
            titles.push_back(action->text().toStdString());
        return titles;
    }

    static std::vector<std::string> namesOf(const QMenu& menu)
    {
        std::vector<std::string> names;
        for (const QAction* action : menu.actions())
            names.push_back(action->data().toByteArray().toStdString());
        return names;
    }
};

TEST_F(WebManagement, withoutAPageAnAlertTellsHowToEnableOne)
{
    launchWithPages({});
    delegate->openManagement();
    ASSERT_THAT(children<QMessageBox>(), SizeIs(1)) << "returns while the alert is shown";
    EXPECT_TRUE(alert().isVisible());
    EXPECT_EQ(alert().windowModality(), Qt::WindowModal);
    EXPECT_EQ(alert().parentWidget(), delegate->window.get());
    EXPECT_EQ(alert().text(), QStringLiteral("Enable web management on your phone"));
    EXPECT_EQ(alert().informativeText(),
              QStringLiteral("In Quillbox, open Users and turn on Enable web management for your "
                             "SMB account. Start NAS, then return here."));
    EXPECT_THAT(network.dnsSd().resolutions(), IsEmpty());
    EXPECT_FALSE(delegate->managementResolver);
    EXPECT_THAT(children<QMenu>(), IsEmpty());
    EXPECT_EQ(workspace.beeps, 0);
}

TEST_F(WebManagement, theAlertHasOneButton)
{
    launchWithPages({});
    delegate->openManagement();
    ASSERT_THAT(alert().buttons(), SizeIs(1));
    const QAbstractButton* button = alert().buttons().at(0);
    EXPECT_EQ(button->text(), QStringLiteral("OK"));
    EXPECT_EQ(button, alert().defaultButton());
}

TEST_F(WebManagement, theAlertHasTheIconOfTheProgramAndABoldTitle)
{
    launchWithPages({});
    delegate->openManagement();
    EXPECT_EQ(alert().iconPixmap().deviceIndependentSize(), QSizeF(48, 48));
    for (const QLabel* label : alert().findChildren<QLabel*>()) {
        const bool isTitle = label->text() == alert().text();
        EXPECT_EQ(label->font().weight(), isTitle ? QFont::DemiBold : QFont::Normal)
            << label->text().toStdString();
    }
}

TEST_F(WebManagement, theAlertIsPlainText)
{
    launchWithPages({});
    delegate->openManagement();
    int texts = 0;
    for (const QLabel* label : alert().findChildren<QLabel*>()) {
        if (label->text().isEmpty())
            continue;
        EXPECT_EQ(label->textFormat(), Qt::PlainText) << label->text().toStdString();
        ++texts;
    }
    EXPECT_EQ(texts, 2);
}

TEST_F(WebManagement, theAlertIsLightWithDarkText)
{
    launchWithPages({});
    delegate->openManagement();
    const QColor background = alert().grab().toImage().pixelColor(2, 2);
    EXPECT_GT(background.lightness(), 220);
    EXPECT_EQ(alert().palette(), delegate->window->palette());
    for (const QLabel* label : alert().findChildren<QLabel*>())
        EXPECT_LT(label->palette().color(QPalette::WindowText).lightness(), 100);
}

TEST_F(WebManagement, theKeysThatPeopleExpectCloseTheAlert)
{
    launchWithPages({});
    for (const int key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Escape}) {
        delegate->openManagement();
        const QPointer<QMessageBox> shown(&alert());
        press(*shown, key);
        EXPECT_FALSE(shown->isVisible()) << key;
        settle();
        EXPECT_FALSE(shown) << "is deleted";
    }
    EXPECT_TRUE(delegate->window->isVisible()) << "only the alert is closed";
}

TEST_F(WebManagement, itsButtonClosesTheAlert)
{
    launchWithPages({});
    delegate->openManagement();
    const QPointer<QMessageBox> shown(&alert());
    shown->buttons().at(0)->click();
    settle();
    EXPECT_FALSE(shown);
    EXPECT_EQ(terminations, 0);
}

TEST_F(WebManagement, thereIsOneAlertAtATime)
{
    launchWithPages({});
    delegate->openManagement();
    delegate->openManagement();
    EXPECT_THAT(children<QMessageBox>(), SizeIs(1));
}

TEST_F(WebManagement, anAlertThatWasJustClosedDoesNotStandInTheWayOfTheNext)
{
    launchWithPages({});
    delegate->openManagement();
    press(alert(), Qt::Key_Escape);
    delegate->openManagement();
    settle();
    ASSERT_THAT(children<QMessageBox>(), SizeIs(1));
    EXPECT_TRUE(alert().isVisible());
}

TEST_F(WebManagement, theAlertBringsAHiddenWindowBack)
{
    launchWithPages({});
    delegate->window->close();
    ASSERT_FALSE(delegate->window->isVisible());
    delegate->openManagement();
    EXPECT_TRUE(delegate->window->isVisible());
    EXPECT_TRUE(alert().isVisible());
}

TEST_F(WebManagement, oneAlertThatIsShownComesBackWithItsWindow)
{
    launchWithPages({});
    delegate->openManagement();
    delegate->window->setWindowState(Qt::WindowMinimized);
    delegate->openManagement();
    EXPECT_FALSE(delegate->window->isMinimized());
    EXPECT_THAT(children<QMessageBox>(), SizeIs(1));
    QWidget another;
    another.show();
    another.activateWindow();
    QApplication::processEvents();
    const EventCounter raised(alert(), QEvent::ZOrderChange);
    delegate->openManagement();
    QApplication::processEvents();
    EXPECT_EQ(raised.count, 1);
    EXPECT_TRUE(alert().isActiveWindow());
}

TEST_F(WebManagement, onePageNeedsNoMenuAndNoAlert)
{
    launchWithPages({adminNamed("Quillbox")});
    delegate->openManagement();
    EXPECT_THAT(children<QMenu>(), IsEmpty());
    EXPECT_THAT(children<QMessageBox>(), IsEmpty());
    EXPECT_THAT(network.dnsSd().resolutions(), SizeIs(1));
}

TEST_F(WebManagement, severalPagesAreChosenFromAMenuInTheirOrder)
{
    launchWithPages({adminNamed("Quillbox B"), adminNamed("Quillbox A")});
    delegate->openManagement();
    ASSERT_THAT(children<QMenu>(), SizeIs(1)) << "returns while the menu is shown";
    EXPECT_TRUE(menu().isVisible());
    EXPECT_THAT(titlesOf(menu()), ElementsAre("Quillbox A", "Quillbox B"));
    EXPECT_THAT(namesOf(menu()), ElementsAre("Quillbox A", "Quillbox B"));
    for (const QAction* item : menu().actions())
        EXPECT_TRUE(item->shortcut().isEmpty());
    EXPECT_THAT(network.dnsSd().resolutions(), IsEmpty());
}

TEST_F(WebManagement, theMenuOpensAtThePointer)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    for (const QPoint& position : {QPoint(120, 90), QPoint(40, 200)}) {
        QCursor::setPos(position);
        delegate->openManagement();
        EXPECT_EQ(menu().pos(), position);
        menu().close();
        settle();
    }
}

TEST_F(WebManagement, anEntryShowsAHostileNameHarmlesslyAndKeepsItAsItIs)
{
    // U+202E, right-to-left override; built from bytes, as a literal would reorder the source text.
    const std::string turn{'\xE2', '\x80', '\xAE'};
    const std::string name = "Quillbox A&B\t" + turn + "<b>";
    launchWithPages({adminNamed(name), adminNamed("Quillbox C")});
    delegate->openManagement();
    EXPECT_THAT(titlesOf(menu()),
                ElementsAre("Quillbox A&&B\xef\xbf\xbd\xef\xbf\xbd<b>", "Quillbox C"));
    EXPECT_THAT(namesOf(menu()), ElementsAre(name, "Quillbox C"));
    menu().actions().at(0)->trigger();
    ASSERT_THAT(network.dnsSd().resolutions(), SizeIs(1));
    EXPECT_EQ(network.dnsSd().resolutions()[0].request.service()->name, name);
}

TEST_F(WebManagement, aClickOnAnEntryResolvesThatPhone)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    delegate->openManagement();
    const QPointer<QMenu> shown(&menu());
    click(*shown, shown->actionGeometry(shown->actions().at(1)).center());
    ASSERT_THAT(network.dnsSd().resolutions(), SizeIs(1));
    EXPECT_EQ(network.dnsSd().resolutions()[0].request.service()->name, "Quillbox B");
    settle();
    EXPECT_FALSE(shown) << "closes by itself, and is deleted";
}

TEST_F(WebManagement, anEntryIsChosenWithTheKeyboardToo)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    delegate->openManagement();
    press(menu(), Qt::Key_Down);
    press(menu(), Qt::Key_Down);
    press(menu(), Qt::Key_Return);
    ASSERT_THAT(network.dnsSd().resolutions(), SizeIs(1));
    EXPECT_EQ(network.dnsSd().resolutions()[0].request.service()->name, "Quillbox B");
}

TEST_F(WebManagement, aClickBesideTheMenuOrEscapeChoosesNothing)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    delegate->openManagement();
    press(menu(), Qt::Key_Escape);
    settle();
    EXPECT_THAT(children<QMenu>(), IsEmpty());
    delegate->openManagement();
    click(menu(), QPoint(-20, -20));
    settle();
    EXPECT_THAT(children<QMenu>(), IsEmpty());
    EXPECT_THAT(network.dnsSd().resolutions(), IsEmpty());
}

TEST_F(WebManagement, twoPhonesOfOneNameAreTwoEntriesForTheFirst)
{
    launchWithPages({adminNamed("Quillbox"), ServiceEndpoint{.name = "Quillbox",
                                                             .type = "_quillbox-admin._tcp",
                                                             .domain = "example.org"}});
    const Endpoint first = delegate->managementDevices.at(0).endpoint;
    for (const int entry : {0, 1}) {
        delegate->openManagement();
        EXPECT_THAT(titlesOf(menu()), ElementsAre("Quillbox", "Quillbox"));
        menu().actions().at(entry)->trigger();
        EXPECT_EQ(network.dnsSd().resolutions().back().request, first);
        menu().close();
        settle();
    }
}

TEST_F(WebManagement, anEntryWhosePhoneLeftMeanwhileIsIgnored)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    delegate->openManagement();
    markStatus();
    findManagement({adminNamed("Quillbox B")});
    EXPECT_THAT(titlesOf(menu()), ElementsAre("Quillbox A", "Quillbox B")) << "as it was opened";
    menu().actions().at(0)->trigger();
    EXPECT_THAT(network.dnsSd().resolutions(), IsEmpty());
    EXPECT_TRUE(isStatusMarked());
    menu().actions().at(1)->trigger();
    EXPECT_THAT(network.dnsSd().resolutions(), SizeIs(1));
}

TEST_F(WebManagement, theMenuOutlivesEveryRedrawOfTheList)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    delegate->openManagement();
    const QPointer<QMenu> shown(&menu());
    for (int redraw = 0; redraw < 3; ++redraw) {
        findPhones({phoneNamed("Quillbox A")});
        findManagement({});
        findPhones({});
        settle();
    }
    ASSERT_TRUE(shown);
    EXPECT_TRUE(shown->isVisible());
}

TEST_F(WebManagement, theMenuOpensWhileTheWindowIsHidden)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    delegate->window->close();
    delegate->openManagement();
    EXPECT_TRUE(menu().isVisible());
    EXPECT_FALSE(delegate->window->isVisible());
    menu().actions().at(1)->trigger();
    EXPECT_EQ(network.dnsSd().resolutions().at(0).request.service()->name, "Quillbox B");
}

/// Menus can be opened over the window only, as on Wayland.
class WebManagementOverWindow : public WebManagement {
protected:
    void launchWithTwoPages()
    {
        launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
        windowPresence.menusAnywhere = false;
        QApplication::processEvents(); // the window becomes active
    }

    /// Hides it, and gives the focus to another one.
    void hideWindow()
    {
        delegate->window->close();
        activateAnother();
    }

    void activateAnother()
    {
        another.show();
        another.activateWindow();
        QApplication::processEvents();
        ASSERT_FALSE(delegate->window->isActiveWindow());
    }

    /// Presses a key in the window, where the desktop sends the keys.
    void pressInWindow(int key) const
    {
        for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
            QKeyEvent event(type, key, Qt::NoModifier);
            QApplication::sendEvent(delegate->window->windowHandle(), &event);
        }
    }

    QRect buttonPlace() const
    {
        for (const auto* button : children<QPushButton>()) {
            if (button->text() == QStringLiteral("Open web management"))
                return {button->mapToGlobal(QPoint()), button->size()};
        }
        return {};
    }

private:
    QWidget another;
};

TEST_F(WebManagementOverWindow, theMenuBringsAHiddenWindowAndOpensBelowItsButton)
{
    launchWithTwoPages();
    hideWindow();
    delegate->openManagement();
    QApplication::processEvents();
    EXPECT_TRUE(delegate->window->isVisible());
    ASSERT_TRUE(menu().isVisible());
    EXPECT_EQ(menu().geometry().topLeft(), buttonPlace().bottomLeft());
    EXPECT_THAT(titlesOf(menu()), ElementsAre("Quillbox A", "Quillbox B"));
}

TEST_F(WebManagementOverWindow, theMenuOpensAtAPointerInTheWindow)
{
    launchWithTwoPages();
    const QPoint pointer = delegate->window->geometry().center();
    QCursor::setPos(pointer);
    delegate->openManagement();
    EXPECT_EQ(menu().geometry().topLeft(), pointer);
}

TEST_F(WebManagementOverWindow, theMenuWaitsUntilItsWindowIsActive)
{
    launchWithTwoPages();
    windowPresence.isObeyed = false;
    hideWindow();
    delegate->openManagement();
    EXPECT_FALSE(menu().isVisible());
    delegate->openManagement();
    settle();
    EXPECT_THAT(children<QMenu>(), SizeIs(1)) << "a second one takes the place of the first";
    QEvent other(QEvent::Leave);
    QApplication::sendEvent(delegate->window->windowHandle(), &other);
    EXPECT_FALSE(menu().isVisible());
    delegate->window->show();
    delegate->window->activateWindow();
    QApplication::processEvents();
    EXPECT_TRUE(menu().isVisible());
}

TEST_F(WebManagementOverWindow, theMenuWaitsNoLongerThanADesktopTakes)
{
    launchWithTwoPages();
    windowPresence.isObeyed = false;
    hideWindow();
    delegate->openManagement();
    auto* patience = menu().findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
    ASSERT_TRUE(patience && patience->isActive());
    EXPECT_EQ(patience->interval(), 2000);
    QTimerEvent end(patience->timerId());
    QApplication::sendEvent(patience, &end);
    settle();
    EXPECT_THAT(children<QMenu>(), IsEmpty());
}

TEST_F(WebManagementOverWindow, theMenuStaysOnceItIsOpen)
{
    launchWithTwoPages();
    windowPresence.isObeyed = false;
    hideWindow();
    delegate->openManagement();
    auto* patience = menu().findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
    delegate->window->show();
    delegate->window->activateWindow();
    QApplication::processEvents();
    ASSERT_TRUE(menu().isVisible());
    EXPECT_FALSE(patience->isActive());
}

TEST_F(WebManagementOverWindow, theKeysAreTheWindowsUntilTheMenuIsOpen)
{
    launchWithTwoPages();
    windowPresence.isObeyed = false;
    activateAnother();
    delegate->openManagement();
    ASSERT_FALSE(menu().isVisible());
    pressInWindow(Qt::Key_Escape);
    EXPECT_FALSE(delegate->window->isVisible());
}

TEST_F(WebManagementOverWindow, anEntryIsChosenWithTheKeysOfTheWindow)
{
    launchWithTwoPages();
    delegate->openManagement();
    pressInWindow(Qt::Key_Down);
    pressInWindow(Qt::Key_Down);
    pressInWindow(Qt::Key_Return);
    ASSERT_THAT(network.dnsSd().resolutions(), SizeIs(1));
    EXPECT_EQ(network.dnsSd().resolutions()[0].request.service()->name, "Quillbox B");
    settle();
    EXPECT_THAT(children<QMenu>(), IsEmpty());
}

TEST_F(WebManagementOverWindow, anEntryIsChosenWithAClick)
{
    launchWithTwoPages();
    delegate->openManagement();
    const QPointer<QMenu> shown(&menu());
    click(*shown, shown->actionGeometry(shown->actions().at(1)).center());
    ASSERT_THAT(network.dnsSd().resolutions(), SizeIs(1));
    EXPECT_EQ(network.dnsSd().resolutions()[0].request.service()->name, "Quillbox B");
    EXPECT_FALSE(shown->isVisible());
    settle();
    EXPECT_FALSE(shown);
}

TEST_F(WebManagementOverWindow, escapeAClickInTheWindowAndAnotherWindowCloseTheMenuOnly)
{
    launchWithTwoPages();
    QWindow& handle = *delegate->window->windowHandle();
    QMouseEvent mouse(QEvent::MouseButtonPress, QPointF(5, 5), QPointF(5, 5), Qt::LeftButton,
                      Qt::LeftButton, Qt::NoModifier);
    QFocusEvent focus(QEvent::FocusOut);
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    for (QEvent* event : std::initializer_list<QEvent*>{&escape, &mouse, &focus}) {
        delegate->openManagement();
        ASSERT_TRUE(menu().isVisible()) << event->type();
        QApplication::sendEvent(&handle, event);
        settle();
        EXPECT_THAT(children<QMenu>(), IsEmpty()) << event->type();
        EXPECT_TRUE(delegate->window->isVisible()) << event->type();
    }
    EXPECT_THAT(network.dnsSd().resolutions(), IsEmpty());
}

TEST_F(WebManagement, aSecondMenuTakesThePlaceOfTheFirst)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    delegate->openManagement();
    findManagement({adminNamed("Quillbox A"), adminNamed("Quillbox C")});
    const QPointer<QMenu> first(&menu());
    delegate->openManagement();
    EXPECT_FALSE(first->isVisible());
    settle();
    ASSERT_THAT(children<QMenu>(), SizeIs(1));
    EXPECT_THAT(titlesOf(menu()), ElementsAre("Quillbox A", "Quillbox C"));
    EXPECT_TRUE(menu().isVisible());
}

TEST_F(WebManagement, theControllerMayGoWhileAlertAndMenuAreShown)
{
    launchWithPages({});
    delegate->openManagement();
    const QPointer<QMessageBox> shownAlert(&alert());
    findManagement({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    delegate->openManagement();
    const QPointer<QMenu> shownMenu(&menu());
    delegate = nullptr;
    EXPECT_FALSE(shownAlert);
    EXPECT_FALSE(shownMenu);
}

} // namespace

} // namespace quillbox
