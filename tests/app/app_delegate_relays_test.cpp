#include "tests/app/app_fixture.h"

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

class AppDelegateRelays : public AppFixture {
protected:
    std::error_code failure = std::make_error_code(std::errc::permission_denied);

    void becomeReady(const std::string& finderName)
    {
        report(listenerNamed(finderName), Listener::State::Ready);
    }

    void typeTarget(const QString& host, const QString& port)
    {
        delegate->hostField.setText(host);
        delegate->portField.setText(port);
    }

    /// Makes the report of the phone discovery pending on the main queue.
    void runDiscovery() { std::static_pointer_cast<FakeQueue>(phoneBrowse().queue)->run(); }

    void restart()
    {
        delegate->restartRelay();
        dispatch.runAll();
    }
};

TEST_F(AppDelegateRelays, aManualRelayLeadsToTheTypedTarget)
{
    launchManually();
    EXPECT_THAT(runningNames(), ElementsAre("Quillbox"));
    EXPECT_THAT(delegate->relayTargets, ElementsAre(Pair("Quillbox", "192.0.2.7:4445")));
    EXPECT_EQ(statusText(), "Starting Finder service…");
    EXPECT_FALSE(isStatusReady());
    EXPECT_EQ(targetOf(listenerNamed("Quillbox")), (HostEndpoint{"192.0.2.7", 4445}));
    EXPECT_EQ(listenerNamed("Quillbox").queue->label(), std::string(kIdentifier) + ".relay");
}

TEST_F(AppDelegateRelays, aManualHostIsTrimmedAndUsed)
{
    launchManually();
    typeTarget(QStringLiteral("  192.0.2.8 \n"), QStringLiteral("4445"));
    restart();
    EXPECT_THAT(delegate->relayTargets, ElementsAre(Pair("Quillbox", "192.0.2.8:4445")));
    EXPECT_EQ(targetOf(listenerNamed("Quillbox")), (HostEndpoint{"192.0.2.8", 4445}));
}

TEST_F(AppDelegateRelays, aUserNameOrAUrlAsManualHostLeavesNoRelayRunning)
{
    launchManually();
    for (const char* host : {"nas@192.0.2.7", "smb://192.0.2.7"}) {
        typeTarget(QStringLiteral("192.0.2.7"), QStringLiteral("4445"));
        restart();
        ASSERT_EQ(runningListeners().size(), 1U);
        typeTarget(QString::fromLatin1(host), QStringLiteral("4445"));
        restart();
        EXPECT_EQ(statusText(), "Enter the local IP address shown in Quillbox");
        EXPECT_FALSE(isStatusReady());
        EXPECT_THAT(delegate->relays, IsEmpty());
        EXPECT_THAT(delegate->relayTargets, IsEmpty());
        EXPECT_THAT(runningListeners(), IsEmpty());
    }
}

TEST_F(AppDelegateRelays, aManualPortThatIsNoneLeavesNoRelayRunning)
{
    launchManually();
    for (const char* port : {"0", "70000", "smb", " 445", "445 ", ""}) {
        typeTarget(QStringLiteral("192.0.2.7"), QStringLiteral("4445"));
        restart();
        ASSERT_EQ(runningListeners().size(), 1U);
        typeTarget(QStringLiteral("192.0.2.7"), QString::fromLatin1(port));
        restart();
        EXPECT_EQ(statusText(), "Enter a valid SMB port") << port;
        EXPECT_FALSE(isStatusReady());
        EXPECT_THAT(runningListeners(), IsEmpty()) << port;
    }
}

TEST_F(AppDelegateRelays, aManualPortWithAPlusSignIsDescribedWithoutIt)
{
    launchManually();
    typeTarget(QStringLiteral("192.0.2.7"), QStringLiteral("+445"));
    restart();
    EXPECT_THAT(delegate->relayTargets, ElementsAre(Pair("Quillbox", "192.0.2.7:445")));
}

TEST_F(AppDelegateRelays, aManualRelayIsAlwaysMadeAnew)
{
    launchManually();
    const auto before = delegate->relays.at("Quillbox");
    restart();
    EXPECT_NE(delegate->relays.at("Quillbox"), before);
    EXPECT_EQ(network.listeners.size(), 2U);
    EXPECT_EQ(network.listeners[0]->cancels, 1);
    EXPECT_EQ(runningListeners().size(), 1U);
}

TEST_F(AppDelegateRelays, aManualRelaysOwnWordsAreShown)
{
    launchManually();
    FakeListener& listener = listenerNamed("Quillbox");
    report(listener, Listener::State::Ready);
    EXPECT_EQ(statusText(), "Quillbox is visible in Finder");
    EXPECT_TRUE(isStatusReady());
    report(listener, Listener::State::Failed, failure);
    EXPECT_EQ(statusText(), "Finder service failed: " + failure.message());
    EXPECT_FALSE(isStatusReady());
    EXPECT_THAT(delegate->readyFinderNames, IsEmpty());
}

TEST_F(AppDelegateRelays, everyPhoneHasARelayOfItsName)
{
    launch();
    findPhones({phoneNamed("Quillbox B"), phoneNamed("Quillbox A")});
    EXPECT_THAT(runningNames(), ElementsAre("Quillbox A", "Quillbox B"));
    EXPECT_EQ(targetOf(listenerNamed("Quillbox A")), phoneNamed("Quillbox A"));
    EXPECT_EQ(targetOf(listenerNamed("Quillbox B")), phoneNamed("Quillbox B"));
    EXPECT_THAT(delegate->relayTargets,
                ElementsAre(Pair("Quillbox A", phoneNamed("Quillbox A").description()),
                            Pair("Quillbox B", phoneNamed("Quillbox B").description())));
}

TEST_F(AppDelegateRelays, theStatusCountsThePhones)
{
    launch();
    findPhones({phoneNamed("Quillbox A")});
    EXPECT_EQ(statusText(), "Connecting 1 Quillbox device…");
    EXPECT_FALSE(isStatusReady());
    becomeReady("Quillbox A");
    EXPECT_EQ(statusText(), "1 Quillbox device visible in Finder");
    EXPECT_TRUE(isStatusReady());
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    EXPECT_EQ(statusText(), "Connecting 2 Quillbox devices…");
    EXPECT_FALSE(isStatusReady());
    becomeReady("Quillbox B");
    EXPECT_EQ(statusText(), "2 Quillbox devices visible in Finder");
    EXPECT_TRUE(isStatusReady());
}

TEST_F(AppDelegateRelays, aReadyRelayAmongSeveralLeavesTheConnectingText)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    markStatus();
    becomeReady("Quillbox A");
    EXPECT_TRUE(isStatusMarked());
    EXPECT_THAT(delegate->readyFinderNames, ElementsAre("Quillbox A"));
}

TEST_F(AppDelegateRelays, anUnchangedListStartsAndStopsNothingButRecountsTheStatus)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    becomeReady("Quillbox A");
    becomeReady("Quillbox B");
    const auto relays = delegate->relays;
    markStatus();
    restart();
    EXPECT_EQ(delegate->relays, relays);
    EXPECT_EQ(network.listeners.size(), 2U);
    EXPECT_EQ(runningListeners().size(), 2U);
    EXPECT_EQ(statusText(), "2 Quillbox devices visible in Finder");
}

TEST_F(AppDelegateRelays, aChangedEndpointUnderTheSameNameGetsANewRelay)
{
    launch();
    findPhones({phoneNamed("Quillbox A", "one"), phoneNamed("Quillbox B")});
    becomeReady("Quillbox A");
    becomeReady("Quillbox B");
    const auto kept = delegate->relays.at("Quillbox B");
    const auto oldRelay = delegate->relays.at("Quillbox A");
    const auto oldListener = network.listeners.at(0);

    findPhones({phoneNamed("Quillbox A", "two"), phoneNamed("Quillbox B")});
    EXPECT_EQ(oldListener->cancels, 1);
    EXPECT_NE(delegate->relays.at("Quillbox A"), oldRelay);
    EXPECT_EQ(delegate->relays.at("Quillbox B"), kept);
    EXPECT_EQ(targetOf(listenerNamed("Quillbox A")), phoneNamed("Quillbox A", "two"));
    EXPECT_THAT(delegate->readyFinderNames, ElementsAre("Quillbox B"));
    EXPECT_EQ(statusText(), "Connecting 2 Quillbox devices…");

    becomeReady("Quillbox A");
    EXPECT_THAT(delegate->readyFinderNames, ElementsAre("Quillbox A", "Quillbox B"));
    EXPECT_EQ(statusText(), "2 Quillbox devices visible in Finder");
}

TEST_F(AppDelegateRelays, aVanishedPhonesRelayIsStopped)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    becomeReady("Quillbox A");
    becomeReady("Quillbox B");
    findPhones({phoneNamed("Quillbox B")});
    EXPECT_THAT(runningNames(), ElementsAre("Quillbox B"));
    EXPECT_THAT(delegate->readyFinderNames, ElementsAre("Quillbox B"));
    EXPECT_EQ(delegate->relayTargets.size(), 1U);
    EXPECT_EQ(statusText(), "1 Quillbox device visible in Finder");
}

TEST_F(AppDelegateRelays, whenAllPhonesDisappearEveryRelayIsStopped)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    becomeReady("Quillbox A");
    findPhones({});
    EXPECT_THAT(runningListeners(), IsEmpty());
    EXPECT_THAT(delegate->relays, IsEmpty());
    EXPECT_THAT(delegate->relayTargets, IsEmpty());
    EXPECT_THAT(delegate->readyFinderNames, IsEmpty());
    EXPECT_EQ(statusText(), "Looking for Quillbox on this network…");
    EXPECT_FALSE(isStatusReady());
}

TEST_F(AppDelegateRelays, twoPhonesOfOneNameShareARelayToTheFirst)
{
    launch();
    findPhones({phoneNamed("Quillbox", "one"), phoneNamed("Quillbox", "two")});
    EXPECT_THAT(runningNames(), ElementsAre("Quillbox"));
    EXPECT_EQ(targetOf(listenerNamed("Quillbox")), phoneNamed("Quillbox", "one"));
    becomeReady("Quillbox");
    EXPECT_EQ(statusText(), "Connecting 2 Quillbox devices…");
    EXPECT_FALSE(isStatusReady());
}

TEST_F(AppDelegateRelays, namesThatAreCanonicallyEqualShareARelay)
{
    launch();
    findPhones({phoneNamed("Quillbox Caf\u00e9"), phoneNamed("Quillbox Cafe\u0301")});
    EXPECT_EQ(runningListeners().size(), 1U);
    EXPECT_EQ(delegate->discoveredDevices.size(), 2U);
}

TEST_F(AppDelegateRelays, switchingToManualModeStopsAllRelaysBeforeTheFieldsAreRead)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    becomeReady("Quillbox A");
    typeTarget(QString(), QStringLiteral("4445"));
    delegate->automaticDiscovery.click();
    dispatch.runAll();
    EXPECT_THAT(runningListeners(), IsEmpty());
    EXPECT_THAT(delegate->relays, IsEmpty());
    EXPECT_THAT(delegate->readyFinderNames, IsEmpty());
    EXPECT_EQ(statusText(), "Enter the local IP address shown in Quillbox");
}

TEST_F(AppDelegateRelays, switchingToAutomaticModeRetiresTheManualRelay)
{
    launchManually();
    findPhones({phoneNamed("Quillbox")});
    const auto manual = network.listeners.at(0);
    delegate->automaticDiscovery.click();
    dispatch.runAll();
    EXPECT_EQ(manual->cancels, 1);
    EXPECT_EQ(targetOf(listenerNamed("Quillbox")), phoneNamed("Quillbox"));
}

TEST_F(AppDelegateRelays, theRestartCommandLeavesUnchangedRelaysAloneAFailedOneIncluded)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    becomeReady("Quillbox A");
    report(listenerNamed("Quillbox B"), Listener::State::Failed, failure);
    const auto relays = delegate->relays;
    delegate->restartFromMenu();
    dispatch.runAll();
    EXPECT_EQ(delegate->relays, relays);
    EXPECT_EQ(network.listeners.size(), 2U);
    EXPECT_EQ(statusText(), "Connecting 2 Quillbox devices…");
}

TEST_F(AppDelegateRelays, aFailureBesideAReadyRelayIsShownInItsOwnWords)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    becomeReady("Quillbox A");
    becomeReady("Quillbox B");
    report(listenerNamed("Quillbox B"), Listener::State::Failed, failure);
    EXPECT_THAT(delegate->readyFinderNames, ElementsAre("Quillbox A"));
    EXPECT_EQ(statusText(), "Finder service failed: " + failure.message());
    EXPECT_FALSE(isStatusReady());
}

TEST_F(AppDelegateRelays, aListenerThatCannotBeOpenedIsReported)
{
    launch();
    network.listenerError = failure;
    findPhones({phoneNamed("Quillbox A")});
    EXPECT_EQ(statusText(), "Could not start Finder service: " + failure.message());
    EXPECT_FALSE(isStatusReady());
}

TEST_F(AppDelegateRelays, aRelayThatWasReplacedIsNotTakenForItsSuccessor)
{
    launch();
    findPhones({phoneNamed("Quillbox A", "one")});
    // The relay becomes ready after the phone has moved, but before its stop takes effect.
    phoneBrowse().tell(readyWith({phoneNamed("Quillbox A", "two")}));
    runDiscovery();
    network.listeners.at(0)->report(Listener::State::Ready);
    dispatch.queue(dispatch.queueCount() - 1)->run();
    dispatch.runAll();
    EXPECT_EQ(network.listeners.at(0)->cancels, 1);
    EXPECT_THAT(delegate->readyFinderNames, IsEmpty());
    EXPECT_EQ(statusText(), "Connecting 1 Quillbox device…");
}

TEST_F(AppDelegateRelays, aFailureOfARetiredRelayIsNotShown)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    phoneBrowse().tell(readyWith({phoneNamed("Quillbox A")}));
    runDiscovery();
    network.listeners.at(1)->report(Listener::State::Failed, failure);
    dispatch.queue(dispatch.queueCount() - 1)->run();
    dispatch.runAll();
    EXPECT_THAT(runningNames(), ElementsAre("Quillbox A"));
    EXPECT_EQ(statusText(), "Connecting 1 Quillbox device…");
}

TEST_F(AppDelegateRelays, whatAStoppedRelayStillHadToSayIsNotHeard)
{
    launch();
    findPhones({phoneNamed("Quillbox A", "one")});
    const auto relay = delegate->relays.at("Quillbox A");
    // The report is pending on the main queue when the relay is stopped.
    network.listeners.at(0)->report(Listener::State::Ready);
    dispatch.queue(dispatch.queueCount() - 1)->run();
    delegate->showInFinder.click();
    dispatch.runAll();
    EXPECT_THAT(delegate->readyFinderNames, IsEmpty());
    EXPECT_EQ(statusText(), "Finder visibility is off");
}

} // namespace

} // namespace quillbox
