#include "tests/app/app_fixture.h"
#include "tests/fakes/socket_addresses.h"

#include <QMenu>
#include <QMessageBox>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A controller that gets requests from another process of the user.
class AppDelegateControl : public AppFixture {
protected:
    ~AppDelegateControl() override
    {
        if (delegate) {
            delegate->applicationWillTerminate();
            dispatch.runAll();
        }
    }

    /// Sends a message; returns the answers so far. Later ones are added to the same vector.
    std::vector<ControlAnswer>& tell(const std::string& text, const std::string& permission = {})
    {
        answers.clear();
        applications.messageHandler({.text = text, .permission = permission},
                                    [this](const std::string& answer) {
                                        answers.push_back(decodedAnswer(answer).value());
                                    });
        return answers;
    }

    /// Sends a request; returns its only answer.
    ControlAnswer ask(ControlCommand command, const std::optional<std::string>& phone = {})
    {
        tell(encoded(ControlRequest{.command = command, .phone = phone}));
        EXPECT_EQ(answers.size(), 1U);
        return answers.empty() ? ControlAnswer() : answers.front();
    }

    void findOfficeAndKitchen()
    {
        findPhones({phoneNamed("Quillbox K\u00fcche"), phoneNamed("Quillbox Office")});
    }

    FakeDnsSd::Resolution resolution() { return network.dnsSd().resolutions().at(0); }

    std::vector<ControlAnswer> answers;
};

TEST_F(AppDelegateControl, tellsItsStatus)
{
    launch();
    auto status = ask(ControlCommand::Status).status.value();
    EXPECT_EQ(status, (HelperStatus{.isReady = false,
                                    .text = "Looking for Quillbox on this network\u2026",
                                    .isShownInFinder = true,
                                    .isAutomatic = true,
                                    .start = StartSettings()}));

    findOfficeAndKitchen();
    findManagement({phoneNamed("Quillbox Attic"), phoneNamed("Quillbox Office")});
    const Traffic carried{.sessions = 1, .sessionsInAll = 2, .bytesReceived = 3, .bytesSent = 4};
    network.carried = {.total = {.sessionsInAll = 9}, .listeners = {{"Quillbox Office", carried}}};
    for (const auto& listener : runningListeners())
        report(*listener, Listener::State::Ready);

    status = ask(ControlCommand::Status).status.value();
    EXPECT_TRUE(status.isReady);
    EXPECT_EQ(status.text, "2 Quillbox devices visible in Finder");
    EXPECT_THAT(
        status.phones,
        ElementsAre(
            PhoneStatus{.name = "Quillbox Attic", .hasWebManagement = true},
            PhoneStatus{.name = "Quillbox K\u00fcche", .hasFiles = true},
            PhoneStatus{.name = "Quillbox Office", .hasFiles = true, .hasWebManagement = true}));
    EXPECT_THAT(status.relays, ElementsAre(RelayStatus{.name = "Quillbox K\u00fcche",
                                                       .target = "Quillbox K\u00fcche"},
                                           RelayStatus{.name = "Quillbox Office",
                                                       .target = "Quillbox Office",
                                                       .traffic = carried}));
    EXPECT_EQ(status.total, (Traffic{.sessionsInAll = 9}));
}

TEST_F(AppDelegateControl, tellsTheHostsOfRelaysWhileTheyAreAdvertised)
{
    launch();
    findOfficeAndKitchen();
    const auto queries = active(network.dnsSd().ownQueries());
    ASSERT_EQ(queries.size(), 2U);
    EXPECT_EQ(queries.at(1).request, "Quillbox Office._smb._tcp");
    const auto hostOnce = [&](const std::optional<DnsSd::OwnService>& own) {
        queries.at(1).tell(own);
        dispatch.runAll();
        const auto relays = ask(ControlCommand::Status).status.value().relays;
        EXPECT_EQ(relays.at(0).host, "");
        return relays.at(1).host;
    };
    DnsSd::OwnService own{"office-pc-1.local", {}, false};
    EXPECT_EQ(hostOnce(own), "");
    own.isPublished = true;
    EXPECT_EQ(hostOnce(own), own.hostName);
    EXPECT_EQ(hostOnce(std::nullopt), "");

    findPhones({phoneNamed("Quillbox K\u00fcche")});
    EXPECT_TRUE(queries.at(1).isEnded());
    queries.at(1).tell(own);
    dispatch.runAll();
    EXPECT_EQ(ask(ControlCommand::Status).status.value().relays.size(), 1U);
}

TEST_F(AppDelegateControl, tellsItsStatusBeforeAnyReport)
{
    defaults.values = {{"automaticDiscovery", false}, {"showInFinder", false}};
    launch();
    EXPECT_EQ(ask(ControlCommand::Status).status.value(),
              (HelperStatus{.text = "Enter the local IP address shown in Quillbox.",
                            .start = StartSettings()}));
}

TEST_F(AppDelegateControl, tellsTheTargetOfTheManualRelay)
{
    launchManually();
    const auto relays = ask(ControlCommand::Status).status.value().relays;
    ASSERT_EQ(relays.size(), 1U);
    EXPECT_EQ(relays.at(0).name, "Quillbox");
    EXPECT_EQ(relays.at(0).target, "192.0.2.7:4445");
}

TEST_F(AppDelegateControl, opensTheOnlyPhone)
{
    launch();
    findPhones({phoneNamed("Quillbox Office")});
    EXPECT_EQ(ask(ControlCommand::Open), ControlAnswer());
    EXPECT_THAT(workspace.opened, ElementsAre("smb://nas@Quillbox%20Office._smb._tcp.local/NAS"));
}

TEST_F(AppDelegateControl, answersOnceTheShareIsOpenOrNothingOpensIt)
{
    launch();
    findPhones({phoneNamed("Quillbox Office")});
    workspace.isWaiting = true;
    for (const std::optional<std::string>& reason :
         {std::optional<std::string>(), {"No program"}}) {
        markStatus();
        tell(encoded(ControlRequest{.command = ControlCommand::Open}), "token");
        EXPECT_THAT(answers, IsEmpty());
        workspace.reports.back()(reason);
        ControlAnswer expected;
        if (reason)
            expected = {.outcome = ControlOutcome::Refused, .text = *reason};
        EXPECT_THAT(answers, ElementsAre(expected));
        EXPECT_TRUE(isStatusMarked()) << "the result does not change the status";
    }
    EXPECT_THAT(workspace.permissions, ElementsAre("token", "token"));
    EXPECT_THAT(windowPresence.permissions, ElementsAre("")) << "the file manager gets the token";
}

TEST_F(AppDelegateControl, opensThePhoneThatWasNamed)
{
    launch();
    findOfficeAndKitchen();
    // The same name in decomposed form.
    EXPECT_EQ(ask(ControlCommand::Open, "Quillbox Ku\u0308che"), ControlAnswer());
    EXPECT_THAT(workspace.opened,
                ElementsAre("smb://nas@Quillbox%20K%C3%BCche._smb._tcp.local/NAS"));
    EXPECT_EQ(workspace.beeps, 0);
}

TEST_F(AppDelegateControl, opensTheManualRelayByItsName)
{
    launchManually();
    EXPECT_EQ(ask(ControlCommand::Open, "Quillbox"), ControlAnswer());
    EXPECT_EQ(ask(ControlCommand::Open), ControlAnswer());
    EXPECT_THAT(workspace.opened, ElementsAre("smb://nas@Quillbox._smb._tcp.local/NAS",
                                              "smb://nas@Quillbox._smb._tcp.local/NAS"));
    EXPECT_EQ(ask(ControlCommand::Open, "Quillbox Office"),
              (ControlAnswer{.outcome = ControlOutcome::UnknownPhone, .phones = {"Quillbox"}}));
}

TEST_F(AppDelegateControl, doesNotOpenAPhoneThatIsNotThere)
{
    launch();
    findOfficeAndKitchen();
    markStatus();
    EXPECT_EQ(ask(ControlCommand::Open, "quillbox office"),
              (ControlAnswer{.outcome = ControlOutcome::UnknownPhone,
                             .phones = {"Quillbox K\u00fcche", "Quillbox Office"}}));
    EXPECT_THAT(workspace.opened, IsEmpty());
    EXPECT_TRUE(isStatusMarked());
}

TEST_F(AppDelegateControl, passesOnWhyNothingWasOpened)
{
    launch();
    EXPECT_EQ(ask(ControlCommand::Open),
              (ControlAnswer{.outcome = ControlOutcome::Refused,
                             .text = "No Quillbox device is available yet"}));
    EXPECT_EQ(statusText(), "No Quillbox device is available yet");
    findOfficeAndKitchen();
    EXPECT_EQ(ask(ControlCommand::Open),
              (ControlAnswer{.outcome = ControlOutcome::Refused,
                             .text = "Choose a Quillbox device directly in Finder",
                             .phones = {"Quillbox K\u00fcche", "Quillbox Office"}}));
    delegate->shareField.setText(QStringLiteral(" "));
    EXPECT_EQ(ask(ControlCommand::Open, "Quillbox Office").text,
              "Enter a share name under Advanced");
    EXPECT_EQ(workspace.beeps, 3);
    delegate->shareField.setText(QStringLiteral("NAS"));
    delegate->showInFinder.setChecked(false);
    EXPECT_EQ(ask(ControlCommand::Open, "Quillbox Office").text,
              "Turn on Show Quillbox in Finder first");
    EXPECT_THAT(workspace.opened, IsEmpty());
}

TEST_F(AppDelegateControl, namesNoPhonesWithARefusalThatAnotherChoiceWouldNotChange)
{
    launch();
    findPhones({phoneNamed("Quillbox Attic"), phoneNamed("Quillbox Office")});
    delegate->shareField.setText({});
    tell(encoded(ControlRequest{.command = ControlCommand::Open}));
    EXPECT_THAT(answers, ElementsAre(ControlAnswer{.outcome = ControlOutcome::Refused,
                                                   .text = "Enter a share name under Advanced"}));
}

TEST_F(AppDelegateControl, opensWebManagementAndTellsOnceItIsOpen)
{
    launch();
    findManagement({phoneNamed("Quillbox Attic"), phoneNamed("Quillbox Office")});
    tell(encoded(ControlRequest{.command = ControlCommand::Manage, .phone = "Quillbox Office"}),
         "token");
    EXPECT_THAT(answers, IsEmpty());
    EXPECT_EQ(network.dnsSd().resolutions().at(0).request.service()->name, "Quillbox Office");
    resolution().tell(found({{ipv4Address("192.0.2.9", 8443), 0}}));
    dispatch.runAll();
    EXPECT_THAT(answers, ElementsAre(ControlAnswer()));
    EXPECT_THAT(workspace.opened, ElementsAre("https://192.0.2.9:8443/"));
    EXPECT_THAT(workspace.permissions, ElementsAre("token"));
}

TEST_F(AppDelegateControl, tellsThatWebManagementCannotBeReached)
{
    launch();
    findManagement({phoneNamed("Quillbox Office")});
    tell(encoded(ControlRequest{.command = ControlCommand::Manage}));
    dispatch.advance(std::chrono::seconds(6));
    const std::string text = "Could not resolve management address. Check the phone is online.";
    EXPECT_THAT(answers,
                ElementsAre(ControlAnswer{.outcome = ControlOutcome::Refused, .text = text}));
    EXPECT_EQ(statusText(), text);
}

TEST_F(AppDelegateControl, tellsThatNoBrowserOpensWebManagement)
{
    launch();
    findManagement({phoneNamed("Quillbox Office")});
    workspace.failure = "No browser";
    tell(encoded(ControlRequest{.command = ControlCommand::Manage}));
    resolution().tell(found({{ipv4Address("192.0.2.9", 8443), 0}}));
    dispatch.runAll();
    EXPECT_THAT(answers, ElementsAre(ControlAnswer{.outcome = ControlOutcome::Refused,
                                                   .text = "No browser"}));
}

TEST_F(AppDelegateControl, tellsTheFirstOfTwoThatTheSecondCame)
{
    launch();
    findManagement({phoneNamed("Quillbox Office")});
    tell(encoded(ControlRequest{.command = ControlCommand::Manage}));
    delegate->openManagement();
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers.at(0).outcome, ControlOutcome::Refused);
    dispatch.advance(std::chrono::seconds(6));
    EXPECT_EQ(answers.size(), 1U);
}

TEST_F(AppDelegateControl, explainsWebManagementInTheWindowAndInTheAnswer)
{
    launch();
    delegate->window->hide();
    tell(encoded(ControlRequest{.command = ControlCommand::Manage}), "token");
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers.at(0).outcome, ControlOutcome::Refused);
    EXPECT_EQ(answers.at(0).text, AppDelegate::kHowToEnableManagement);
    EXPECT_EQ(delegate->window->findChildren<QMessageBox*>().size(), 1);
    EXPECT_TRUE(delegate->window->isVisible());
    EXPECT_THAT(windowPresence.permissions, ElementsAre("", "token"));
}

TEST_F(AppDelegateControl, offersTheChoiceOfPhonesInTheWindowAndInTheAnswer)
{
    launch();
    findManagement({phoneNamed("Quillbox Attic"), phoneNamed("Quillbox Office")});
    const auto answer = ask(ControlCommand::Manage);
    EXPECT_EQ(answer.outcome, ControlOutcome::Refused);
    EXPECT_THAT(answer.phones, ElementsAre("Quillbox Attic", "Quillbox Office"));
    EXPECT_EQ(delegate->window->findChildren<QMenu*>().size(), 1);
    EXPECT_EQ(ask(ControlCommand::Manage, "Quillbox Cellar"),
              (ControlAnswer{.outcome = ControlOutcome::UnknownPhone,
                             .phones = {"Quillbox Attic", "Quillbox Office"}}));
    EXPECT_THAT(network.dnsSd().resolutions(), IsEmpty());
}

TEST_F(AppDelegateControl, restarts)
{
    launchManually();
    delegate->showInFinder.setChecked(false);
    EXPECT_EQ(ask(ControlCommand::Restart), ControlAnswer());
    dispatch.runAll();
    EXPECT_EQ(storedBool("showInFinder"), true);
    EXPECT_EQ(network.listeners.size(), 2U);
    EXPECT_THAT(runningNames(), ElementsAre("Quillbox"));
}

TEST_F(AppDelegateControl, restartsInAutomaticModeWithoutAPhone)
{
    launch();
    EXPECT_EQ(ask(ControlCommand::Restart), ControlAnswer());
}

TEST_F(AppDelegateControl, tellsWhyItCannotRestart)
{
    launchManually();
    delegate->portField.setText(QStringLiteral("0"));
    EXPECT_EQ(ask(ControlCommand::Restart), (ControlAnswer{.outcome = ControlOutcome::Refused,
                                                           .text = "Enter a valid SMB port"}));
}

TEST_F(AppDelegateControl, quitsOnceItHasAnswered)
{
    launch();
    int terminationsBefore = -1;
    applications.messageHandler(
        {.text = encoded(ControlRequest{.command = ControlCommand::Quit}), .permission = {}},
        [&](const std::string&) { terminationsBefore = terminations; });
    EXPECT_EQ(terminationsBefore, 0);
    EXPECT_EQ(terminations, 1);
}

TEST_F(AppDelegateControl, doesNothingForWhatItDoesNotUnderstand)
{
    launch();
    tell("quit");
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers.at(0).outcome, ControlOutcome::NotUnderstood);
    EXPECT_EQ(terminations, 0);
}

TEST_F(AppDelegateControl, ignoresMessagesOnceItIsGone)
{
    launch();
    const auto handler = applications.messageHandler;
    delegate->applicationWillTerminate();
    dispatch.runAll();
    delegate = nullptr;
    handler({.text = encoded(ControlRequest{}), .permission = {}},
            [](const std::string&) { FAIL(); });
}

TEST_F(AppDelegateControl, isNotThereForACopyThatYields)
{
    applications.add({.date = std::chrono::nanoseconds(1), .processIdentifier = 7});
    create();
    delegate->applicationDidFinishLaunching();
    EXPECT_FALSE(applications.messageHandler);
}

} // namespace

} // namespace quillbox
