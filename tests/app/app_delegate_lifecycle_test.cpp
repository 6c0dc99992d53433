#include "tests/app/app_fixture.h"

#include <QApplication>
#include <QCloseEvent>
#include <QLayout>
#include <QPalette>
#include <QPointer>
#include <QScreen>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

using LaunchDate = std::chrono::nanoseconds;

constexpr std::int64_t kOwnProcess = FakeRunningApplications::kOwnProcessIdentifier;
constexpr LaunchDate kOwnDate = FakeRunningApplications::kOwnLaunchDate;
constexpr LaunchDate kEarlier = kOwnDate - LaunchDate(1);
constexpr LaunchDate kLater = kOwnDate + LaunchDate(1);

class AppDelegateLifecycle : public AppFixture {
protected:
    /// Whether this copy yields to one of the given process and date.
    bool yieldsTo(std::int64_t process, std::optional<LaunchDate> date)
    {
        create();
        applications.copies.clear();
        const auto other = applications.add({.date = date, .processIdentifier = process});
        const bool yields = delegate->activateExistingInstance();
        EXPECT_EQ(other->activations, yields ? 1 : 0);
        return yields;
    }
};

TEST_F(AppDelegateLifecycle, startsWithTheControlsOfAFirstLaunch)
{
    create();
    EXPECT_EQ(delegate->hostField.text(), QString());
    EXPECT_EQ(delegate->portField.text(), QStringLiteral("4445"));
    EXPECT_EQ(delegate->shareField.text(), QStringLiteral("NAS"));
    EXPECT_EQ(delegate->userField.text(), QStringLiteral("nas"));
    EXPECT_EQ(delegate->statusDot.text(), QStringLiteral("●"));
    EXPECT_EQ(delegate->statusLabel.text(),
              QStringLiteral("Enter the local IP address shown in Quillbox."));
    EXPECT_EQ(delegate->showInFinder.text(), QStringLiteral("Show Quillbox in Finder"));
    EXPECT_EQ(delegate->automaticDiscovery.text(), QStringLiteral("Find Quillbox automatically"));
    EXPECT_EQ(delegate->advancedButton.text(), QStringLiteral("Advanced ▸"));
    EXPECT_FALSE(delegate->advancedVisible);
    EXPECT_EQ(delegate->window, nullptr);
    EXPECT_EQ(delegate->advancedForm, nullptr);
    EXPECT_EQ(delegate->statusItem, nullptr);
    EXPECT_EQ(delegate->menuStatusItem, nullptr);
    EXPECT_EQ(delegate->managementResolver, nullptr);
    EXPECT_THAT(delegate->managementDevices, IsEmpty());
    EXPECT_THAT(delegate->discoveredDevices, IsEmpty());
    EXPECT_THAT(delegate->relays, IsEmpty());
    EXPECT_THAT(delegate->relayTargets, IsEmpty());
    EXPECT_THAT(delegate->readyFinderNames, IsEmpty());
    EXPECT_THAT(network.dnsSd().browses(), IsEmpty());
}

TEST_F(AppDelegateLifecycle, browsesForPhonesAndThenForTheirManagement)
{
    std::vector<std::string> log;
    network.log = &log;
    network.dnsSd().observe([&log](const std::string& event) { log.push_back(event); });
    launch();
    EXPECT_THAT(log,
                ElementsAre("browse.start _quillbox._tcp", "browse.start _quillbox-admin._tcp"));
    EXPECT_EQ(phoneBrowse().queue->label(), std::string(kIdentifier) + ".discovery");
    delegate = nullptr; // ends what is recorded in the log
}

TEST_F(AppDelegateLifecycle, showsTheWindowAtEveryLaunch)
{
    launch();
    EXPECT_TRUE(delegate->window->isVisible());
    EXPECT_NE(delegate->statusItem, nullptr);
    EXPECT_EQ(terminations, 0);
}

TEST_F(AppDelegateLifecycle, centresTheWindowOnTheScreen)
{
    launch();
    const QPoint middle = delegate->window->screen()->availableGeometry().center();
    const QPoint offset = delegate->window->frameGeometry().center() - middle;
    // The size of the window frame is known only when the window is on the screen.
    EXPECT_LE(offset.manhattanLength(), 8);
}

TEST_F(AppDelegateLifecycle, looksLightOnADarkDesktop)
{
    QApplication::setPalette(QPalette(Qt::black));
    launch();
    EXPECT_GT(delegate->window->palette().color(QPalette::Window).lightness(), 200);
    EXPECT_LT(delegate->window->palette().color(QPalette::WindowText).lightness(), 60);
    EXPECT_GT(delegate->hostField.palette().color(QPalette::Base).lightness(), 200);
}

TEST_F(AppDelegateLifecycle, aSecondCopyBringsTheFirstForwardAndEndsUntouched)
{
    const auto older = applications.add({.date = kEarlier, .processIdentifier = 400});
    create();
    defaults.reads.clear();
    launch();
    EXPECT_EQ(older->activations, 1);
    EXPECT_EQ(terminations, 1);
    EXPECT_EQ(delegate->window, nullptr);
    EXPECT_EQ(delegate->statusItem, nullptr);
    EXPECT_THAT(network.dnsSd().browses(), IsEmpty());
    EXPECT_THAT(network.listeners, IsEmpty());
    EXPECT_THAT(delegate->relays, IsEmpty());
    EXPECT_THAT(defaults.reads, IsEmpty());
    EXPECT_THAT(defaults.writes, IsEmpty());
    EXPECT_FALSE(applications.handler);

    delegate->applicationWillTerminate();
    EXPECT_THAT(defaults.writes, IsEmpty());
}

TEST_F(AppDelegateLifecycle, anOlderCopyDoesNotYieldToANewerOne)
{
    const auto newer = applications.add({.date = kLater, .processIdentifier = 400});
    launch();
    EXPECT_EQ(newer->activations, 0);
    EXPECT_EQ(terminations, 0);
    EXPECT_TRUE(delegate->window->isVisible());
}

TEST_F(AppDelegateLifecycle, aCopyThatHasTerminatedIsIgnored)
{
    const auto ended = applications.add({.date = kEarlier, .processIdentifier = 400});
    ended->terminated = true;
    launch();
    EXPECT_EQ(ended->activations, 0);
    EXPECT_EQ(terminations, 0);
}

TEST_F(AppDelegateLifecycle, aCopyWithTheSameProcessIdentifierInAnotherSandboxIsAnother)
{
    EXPECT_TRUE(yieldsTo(kOwnProcess, kEarlier));
    EXPECT_FALSE(yieldsTo(kOwnProcess, kLater));
}

TEST_F(AppDelegateLifecycle, aCopyThatStaysStoresWhatTheCommandLineChose)
{
    startOptions = {.reach = Reach::ThisComputer, .dnsSd = DnsSdChoice::Embedded};
    startSettings = {.reach = Reach::ThisComputer, .dnsSd = DnsSdChoice::Embedded};
    ::testing::internal::CaptureStderr();
    launch();
    EXPECT_THAT(
        ::testing::internal::GetCapturedStderr(),
        AllOf(HasSubstr("quillbox-helper: the setting \"thisComputerOnly\" is true from now on\n"),
              HasSubstr("quillbox-helper: the setting \"dnsSd\" is \"embedded\" from now on\n")));
    EXPECT_EQ(storedBool("thisComputerOnly"), true);
    EXPECT_EQ(storedText("dnsSd"), "embedded");
    EXPECT_EQ(delegate->helperStatus().start, startSettings);
}

TEST_F(AppDelegateLifecycle, aCopyThatYieldsStoresNothingAndSaysSoIfItWasToldOtherSettings)
{
    applications.add({.date = kEarlier, .processIdentifier = 400});
    const auto said = [this] {
        ::testing::internal::CaptureStderr();
        create();
        launch();
        return ::testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(said(), "quillbox-helper: another instance is already running\n");
    startOptions.reach = Reach::ThisComputer;
    EXPECT_EQ(said(), "quillbox-helper: another instance is already running; its settings stay as "
                      "they are: to start with others, run 'quillbox-helper quit' first\n");
    EXPECT_THAT(defaults.writes, IsEmpty());
}

TEST_F(AppDelegateLifecycle, copiesOfTheSameInstantAreOrderedByProcess)
{
    EXPECT_TRUE(yieldsTo(kOwnProcess - 1, kOwnDate));
    EXPECT_FALSE(yieldsTo(kOwnProcess + 1, kOwnDate));
}

TEST_F(AppDelegateLifecycle, yieldsWhereLaunchDatesAreUnknown)
{
    EXPECT_TRUE(yieldsTo(kOwnProcess + 1, std::nullopt));
    applications.own.date = std::nullopt;
    EXPECT_TRUE(yieldsTo(kOwnProcess + 1, kLater));
    EXPECT_TRUE(yieldsTo(kOwnProcess + 1, std::nullopt));
}

TEST_F(AppDelegateLifecycle, activatesTheFirstOlderCopyOfTheSystemsList)
{
    const auto newer = applications.add({.date = kLater, .processIdentifier = 400});
    const auto first = applications.add({.date = kEarlier, .processIdentifier = 401});
    const auto second =
        applications.add({.date = kEarlier - LaunchDate(1), .processIdentifier = 402});
    create();
    EXPECT_TRUE(delegate->activateExistingInstance());
    EXPECT_EQ(newer->activations, 0);
    EXPECT_EQ(first->activations, 1);
    EXPECT_EQ(second->activations, 0);
}

TEST_F(AppDelegateLifecycle, withoutABundleIdentifierAnyNumberOfCopiesRun)
{
    const auto older = applications.add({.date = kEarlier, .processIdentifier = 400});
    create(std::nullopt);
    launch();
    EXPECT_EQ(older->activations, 0);
    EXPECT_EQ(terminations, 0);
    EXPECT_EQ(applications.questions, 0);
}

TEST_F(AppDelegateLifecycle, theSameDevicesInTheSameOrderRedrawTheListAndLeaveTheRelays)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    const auto listeners = runningListeners();
    const QPointer<QWidget> oldHeading = delegate->deviceListStack.layout()->itemAt(0)->widget();
    markStatus();

    findPhones(
        {phoneNamed("Quillbox B"), phoneNamed("Quillbox A")}); // sorted before it is compared
    EXPECT_EQ(runningListeners(), listeners);
    EXPECT_TRUE(isStatusMarked());
    EXPECT_NE(delegate->deviceListStack.layout()->itemAt(0)->widget(), oldHeading);
}

TEST_F(AppDelegateLifecycle, theSameDevicesInAnotherOrderRestartTheRelays)
{
    launch();
    findPhones({phoneNamed("Quillbox", "one"), phoneNamed("Quillbox", "two")});
    ASSERT_EQ(targetOf(listenerNamed("Quillbox")), phoneNamed("Quillbox", "one"));
    markStatus();

    findPhones({phoneNamed("Quillbox", "two"), phoneNamed("Quillbox", "one")});
    EXPECT_FALSE(isStatusMarked());
    EXPECT_EQ(targetOf(listenerNamed("Quillbox")), phoneNamed("Quillbox", "two"));
}

TEST_F(AppDelegateLifecycle, withAutomaticDiscoveryOffReportsOnlyRedrawTheList)
{
    launchManually();
    const auto listeners = runningListeners();
    markStatus();

    findPhones({phoneNamed("Quillbox A")});
    EXPECT_EQ(delegate->discoveredDevices.size(), 1U);
    EXPECT_EQ(delegate->deviceListStack.layout()->count(), 2);
    EXPECT_EQ(runningListeners(), listeners);
    EXPECT_TRUE(isStatusMarked());
}

TEST_F(AppDelegateLifecycle, withFinderVisibilityOffReportsOnlyRedrawTheList)
{
    defaults.values["showInFinder"] = false;
    launch();
    markStatus();
    findPhones({phoneNamed("Quillbox A")});
    EXPECT_EQ(delegate->deviceListStack.layout()->count(), 2);
    EXPECT_THAT(runningListeners(), IsEmpty());
    EXPECT_TRUE(isStatusMarked());
}

TEST_F(AppDelegateLifecycle, managementReportsRedrawTheListAndNeverTouchTheRelays)
{
    launch();
    findPhones({phoneNamed("Quillbox A")});
    const auto listeners = runningListeners();
    const QPointer<QWidget> oldHeading = delegate->deviceListStack.layout()->itemAt(0)->widget();
    markStatus();

    findManagement({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    EXPECT_EQ(delegate->managementDevices.size(), 2U);
    EXPECT_NE(delegate->deviceListStack.layout()->itemAt(0)->widget(), oldHeading);
    EXPECT_EQ(runningListeners(), listeners);
    EXPECT_TRUE(isStatusMarked());
}

TEST_F(AppDelegateLifecycle, closingTheWindowHidesItAndLeavesTheRelays)
{
    launch();
    findPhones({phoneNamed("Quillbox A")});
    QCloseEvent event;
    QApplication::sendEvent(delegate->window.get(), &event);
    EXPECT_FALSE(event.isAccepted());
    EXPECT_FALSE(delegate->window->isVisible());
    EXPECT_THAT(runningNames(), ElementsAre("Quillbox A"));
    EXPECT_FALSE(delegate->applicationShouldTerminateAfterLastWindowClosed());
    EXPECT_FALSE(QApplication::quitOnLastWindowClosed());
    EXPECT_EQ(terminations, 0);
}

TEST_F(AppDelegateLifecycle, reopeningShowsAHiddenWindow)
{
    launch();
    delegate->window->close();
    EXPECT_TRUE(delegate->applicationShouldHandleReopen(false));
    EXPECT_TRUE(delegate->window->isVisible());
}

TEST_F(AppDelegateLifecycle, reopeningWithVisibleWindowsDoesNothing)
{
    launch();
    delegate->window->hide();
    EXPECT_TRUE(delegate->applicationShouldHandleReopen(true));
    EXPECT_FALSE(delegate->window->isVisible());
}

TEST_F(AppDelegateLifecycle, anActivationByAnotherCopyShowsTheWindow)
{
    launch();
    delegate->window->close();
    applications.handler({});
    EXPECT_TRUE(delegate->window->isVisible());
}

TEST_F(AppDelegateLifecycle, anActivationByAnotherCopyRestoresAMinimizedWindow)
{
    launch();
    delegate->window->showMinimized();
    applications.handler({});
    EXPECT_FALSE(delegate->window->isMinimized());
    EXPECT_TRUE(delegate->window->isVisible());
}

TEST_F(AppDelegateLifecycle, anActivationByAnotherCopyUsesItsPermission)
{
    launch();
    windowPresence.permissions.clear();
    applications.handler("token");
    delegate->window->close();
    applications.handler("another");
    delegate->showHelper();
    EXPECT_THAT(windowPresence.permissions, ElementsAre("token", "another", ""));
}

TEST_F(AppDelegateLifecycle, anActivationByAnotherCopyBringsTheWindowForwardOnce)
{
    launch();
    const auto timesForward = [this](const std::function<void()>& prepare) {
        prepare();
        windowPresence.permissions.clear();
        applications.handler({});
        return windowPresence.permissions.size();
    };
    EXPECT_EQ(timesForward([] {}), 1U);
    EXPECT_EQ(timesForward([this] { delegate->window->close(); }), 1U);
    EXPECT_EQ(timesForward([this] { delegate->window->showMinimized(); }), 1U);
}

TEST_F(AppDelegateLifecycle, aTaskbarListsTheWindowOnlyWithoutAStatusItem)
{
    launch();
    EXPECT_TRUE(windowPresence.listed);
    statusHost.become(true);
    EXPECT_FALSE(windowPresence.listed);
    statusHost.become(false);
    EXPECT_TRUE(windowPresence.listed);
}

TEST_F(AppDelegateLifecycle, noTaskbarListsTheWindowWhenThereIsAPlaceForTheItemFromTheStart)
{
    statusHost.available = true;
    launch();
    EXPECT_FALSE(windowPresence.listed);
}

TEST_F(AppDelegateLifecycle, theMenuShowsTheWindowAgain)
{
    launch();
    delegate->window->close();
    delegate->showHelper();
    EXPECT_TRUE(delegate->window->isVisible());
}

TEST_F(AppDelegateLifecycle, withFinderVisibilityStoredAsOffTheWindowShowsAndNoRelayStarts)
{
    defaults.values["showInFinder"] = false;
    launch();
    EXPECT_TRUE(delegate->window->isVisible());
    EXPECT_FALSE(delegate->showInFinder.isChecked());
    findPhones({phoneNamed("Quillbox A")});
    EXPECT_THAT(network.listeners, IsEmpty());
    EXPECT_EQ(statusText(), "Enter the local IP address shown in Quillbox.");
}

TEST_F(AppDelegateLifecycle, quitAsksForTheEnd)
{
    launch();
    delegate->quit();
    EXPECT_EQ(terminations, 1);
}

TEST_F(AppDelegateLifecycle, terminationStopsDiscoveryAndThenTheRelays)
{
    launch();
    findPhones({phoneNamed("Quillbox A")});
    std::vector<std::string> log;
    network.dnsSd().observe([&log](const std::string& event) { log.push_back(event); });
    network.listeners.back()->log = &log;

    delegate->applicationWillTerminate();
    dispatch.runAll();
    EXPECT_THAT(log,
                ElementsAre("browse.cancel _quillbox._tcp", "browse.cancel _quillbox-admin._tcp",
                            "ownQuery.cancel Quillbox A._smb._tcp", "listener.cancel Quillbox A"));
    EXPECT_THAT(delegate->relays, IsEmpty());
    EXPECT_THAT(defaults.writes, IsEmpty());
}

TEST_F(AppDelegateLifecycle, terminationCancelsAManagementLookup)
{
    launch();
    bool isCompleted = false;
    delegate->managementResolver =
        std::make_shared<ManagementResolver>(dispatch, network, phoneNamed("Quillbox A"),
                                             [&isCompleted](const auto&) { isCompleted = true; });
    delegate->managementResolver->start();
    delegate->applicationWillTerminate();
    dispatch.advance(std::chrono::seconds(10));
    EXPECT_TRUE(network.dnsSd().resolutions().at(0).isEnded());
    EXPECT_FALSE(isCompleted);
}

TEST_F(AppDelegateLifecycle, reportsThatArriveAfterTheControllerHasGoneAreIgnored)
{
    launch();
    findPhones({phoneNamed("Quillbox A")});
    const auto discovery = delegate->discovery;
    const auto management = delegate->managementDiscovery;
    const auto relay = delegate->relays.at("Quillbox A");
    ASSERT_TRUE(discovery->resultChanged && management->resultChanged && relay->statusChanged);
    phoneBrowse().tell(readyWith({}));
    managementBrowse().tell(readyWith({}));
    network.listeners.back()->report(Listener::State::Ready);
    delegate = nullptr;
    dispatch.runAll();
    applications.handler({});
    EXPECT_EQ(dispatch.main().pending(), 0U);
}

TEST_F(AppDelegateLifecycle, startsHiddenUntilSomebodyAsksForTheWindow)
{
    startsHidden = true;
    launch();
    EXPECT_FALSE(delegate->window->isVisible());
    EXPECT_TRUE(windowPresence.permissions.empty());
    EXPECT_FALSE(phoneBrowse().isEnded());
    delegate->showHelper();
    EXPECT_TRUE(delegate->window->isVisible());
}

TEST_F(AppDelegateLifecycle, startedHiddenComesForwardWhenAnotherCopyIsStarted)
{
    startsHidden = true;
    launch();
    applications.handler("token");
    EXPECT_TRUE(delegate->window->isVisible());
    EXPECT_EQ(windowPresence.permissions, std::vector<std::string>{"token"});
}

TEST_F(AppDelegateLifecycle, aCopyThatStartsHiddenYieldsWithoutBringingTheOlderForward)
{
    startsHidden = true;
    create();
    const auto older = applications.add({.date = kEarlier, .processIdentifier = 400});
    EXPECT_TRUE(delegate->activateExistingInstance());
    EXPECT_EQ(older->activations, 0);
}

TEST_F(AppDelegateLifecycle, aCopyThatIsAboutToExitIsWaitedForAndNotYieldedTo)
{
    for (const bool isHidden : {false, true}) {
        startsHidden = isHidden;
        create();
        applications.copies.clear();
        const auto exiting = applications.add({.date = kEarlier, .processIdentifier = 400});
        exiting->terminatesWhenReached = true;
        ::testing::internal::CaptureStderr();
        EXPECT_FALSE(delegate->activateExistingInstance());
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(exiting->activations, isHidden ? 0 : 1);
        EXPECT_THAT(exiting->limits, Not(IsEmpty())) << "it was not waited for";

        const auto next = applications.add({.date = kEarlier, .processIdentifier = 401});
        exiting->terminated = false;
        EXPECT_TRUE(delegate->activateExistingInstance());
        EXPECT_EQ(next->activations, isHidden ? 0 : 1);
    }
}

TEST_F(AppDelegateLifecycle, aSecondCopySaysThatAnotherOneRuns)
{
    hasDisplay = false;
    const auto older = applications.add({.date = kEarlier, .processIdentifier = 400});
    ::testing::internal::CaptureStderr();
    launch();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "quillbox-helper: another instance is already running\n");

    delegate = nullptr;
    older->hasDisplay = false;
    ::testing::internal::CaptureStderr();
    launch();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "quillbox-helper: another instance is already running, without a display\n");
    EXPECT_EQ(terminations, 2);
    EXPECT_THAT(notice.shown, IsEmpty()) << "nobody could see it";
}

TEST_F(AppDelegateLifecycle, aCopyThatStaysWithoutADisplaySaysSo)
{
    hasDisplay = false;
    ::testing::internal::CaptureStderr();
    launch();
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                HasSubstr("quillbox-helper: no display; running without a window\n"));
    delegate = nullptr;
    hasDisplay = true;
    ::testing::internal::CaptureStderr();
    launch();
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), Not(HasSubstr("no display")));
}

TEST_F(AppDelegateLifecycle, aLaunchThatCanShowNoWindowSaysSoOnTheDesktopBeforeItEnds)
{
    const auto older = applications.add({.date = kEarlier, .processIdentifier = 400});
    older->hasDisplay = false;
    launch();
    ASSERT_THAT(notice.shown, SizeIs(1));
    EXPECT_THAT(notice.shown.front(), HasSubstr("quillbox-helper quit"));
    EXPECT_EQ(applications.withdrawals, 1) << "another launch would find this copy";
    EXPECT_EQ(terminations, 0);
    EXPECT_EQ(delegate->window, nullptr);
    notice.deliveries.front()();
    EXPECT_EQ(terminations, 1);
}

} // namespace

} // namespace quillbox
