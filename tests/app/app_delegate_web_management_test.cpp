#include "tests/app/app_fixture.h"
#include "tests/fakes/socket_addresses.h"

#include <chrono>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::chrono::seconds kResolutionLimit(6);
constexpr const char* kNotResolved =
    "Could not resolve management address. Check the phone is online.";

class AppDelegateWebManagement : public AppFixture {
protected:
    static Endpoint adminNamed(const std::string& name, const std::string& domain = "local")
    {
        return ServiceEndpoint{.name = name, .type = "_quillbox-admin._tcp", .domain = domain};
    }

    void launchWithPages(const std::vector<Endpoint>& pages)
    {
        launch();
        findManagement(pages);
        markStatus();
    }

    FakeDnsSd::Resolution resolution(std::size_t index)
    {
        return network.dnsSd().resolutions().at(index);
    }

    void resolve(std::size_t index, const std::string& address, std::uint16_t port)
    {
        resolution(index).tell(found({{ipv4Address(address, port), 0}}));
        dispatch.runAll();
    }

    void failToResolve() { dispatch.advance(kResolutionLimit); }

    /// Keeps the answers to a request in `answers`.
    ManagementRequest listener()
    {
        return {.permission = "token",
                .opened = [this](const auto& refusal) { answers.push_back(refusal); }};
    }

    std::vector<std::optional<std::string>> answers;

    static QByteArray asData(const std::string& name) { return QByteArray::fromStdString(name); }
};

TEST_F(AppDelegateWebManagement, resolvesTheOnePageAtOnce)
{
    launchWithPages({adminNamed("Quillbox Office")});
    delegate->openManagement();
    ASSERT_EQ(network.dnsSd().resolutions().size(), 1U);
    EXPECT_EQ(resolution(0).request, adminNamed("Quillbox Office"));
    EXPECT_THAT(workspace.opened, IsEmpty());
    EXPECT_TRUE(delegate->managementResolver);
}

TEST_F(AppDelegateWebManagement, opensThePageAtItsAddressAndPort)
{
    launchWithPages({adminNamed("Quillbox Office")});
    delegate->openManagement();
    resolve(0, "192.0.2.7", 8443);
    EXPECT_THAT(workspace.opened, ElementsAre("https://192.0.2.7:8443/"));
    EXPECT_TRUE(isStatusMarked()) << "success sets no status";
    EXPECT_EQ(workspace.beeps, 0);
    EXPECT_FALSE(delegate->managementResolver);
    EXPECT_TRUE(resolution(0).isEnded());
}

TEST_F(AppDelegateWebManagement, tellsWhenThePageCannotBeResolved)
{
    launchWithPages({adminNamed("Quillbox Office")});
    delegate->statusLabel.setText(QString());
    delegate->openManagement();
    failToResolve();
    EXPECT_EQ(statusText(), kNotResolved);
    EXPECT_FALSE(isStatusReady());
    EXPECT_THAT(workspace.opened, IsEmpty());
    EXPECT_EQ(workspace.beeps, 0);
    EXPECT_FALSE(delegate->managementResolver);
}

TEST_F(AppDelegateWebManagement, tellsTheSameOfAPageWithoutAnAddress)
{
    launchWithPages({adminNamed("Quillbox Office")});
    delegate->openManagement();
    resolution(0).tell(found({}));
    failToResolve();
    EXPECT_EQ(statusText(), kNotResolved);
    EXPECT_THAT(workspace.opened, IsEmpty());
}

TEST_F(AppDelegateWebManagement, tellsAtOnceOfAnEndpointThatIsNoService)
{
    launch();
    markStatus();
    delegate->resolveManagement(HostEndpoint{"192.0.2.7", 443});
    EXPECT_EQ(statusText(), kNotResolved);
    EXPECT_FALSE(delegate->managementResolver);
    EXPECT_THAT(network.dnsSd().resolutions(), IsEmpty());
}

TEST_F(AppDelegateWebManagement, canBeAskedAgainAfterAFailure)
{
    launchWithPages({adminNamed("Quillbox Office")});
    delegate->openManagement();
    failToResolve();
    delegate->openManagement();
    resolve(1, "192.0.2.7", 8443);
    EXPECT_THAT(workspace.opened, ElementsAre("https://192.0.2.7:8443/"));
}

TEST_F(AppDelegateWebManagement, actsOnTheSecondOfTwoRequestsOnly)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    delegate->resolveManagement(adminNamed("Quillbox A"));
    // The answer to the first request is pending when the second is made.
    resolution(0).tell(found({{ipv4Address("192.0.2.1", 1), 0}}));
    delegate->resolveManagement(adminNamed("Quillbox B"));
    EXPECT_TRUE(resolution(0).isEnded());
    dispatch.runAll();
    EXPECT_THAT(workspace.opened, IsEmpty());
    EXPECT_TRUE(isStatusMarked());
    EXPECT_TRUE(delegate->managementResolver);
    resolve(1, "192.0.2.2", 2);
    EXPECT_THAT(workspace.opened, ElementsAre("https://192.0.2.2:2/"));
}

TEST_F(AppDelegateWebManagement, setsNoStatusForTheFirstOfTwoRequests)
{
    launchWithPages({adminNamed("Quillbox A")});
    delegate->openManagement();
    dispatch.advance(kResolutionLimit / 2);
    delegate->openManagement();
    dispatch.advance(kResolutionLimit / 2);
    EXPECT_TRUE(isStatusMarked());
}

TEST_F(AppDelegateWebManagement, answersARequestOnceWhenThePageIsOpened)
{
    launchWithPages({adminNamed("Quillbox A")});
    delegate->resolveManagement(adminNamed("Quillbox A"), listener());
    EXPECT_THAT(answers, IsEmpty());
    resolve(0, "192.0.2.1", 1);
    EXPECT_THAT(answers, ElementsAre(std::nullopt));
    delegate->openManagement();
    resolve(1, "192.0.2.1", 1);
    EXPECT_EQ(answers.size(), 1U);
}

TEST_F(AppDelegateWebManagement, answersARequestOnceWhenThePageCannotBeResolved)
{
    launchWithPages({adminNamed("Quillbox A")});
    delegate->resolveManagement(adminNamed("Quillbox A"), listener());
    failToResolve();
    EXPECT_THAT(answers, ElementsAre(kNotResolved));
    delegate->openManagement();
    failToResolve();
    EXPECT_EQ(answers.size(), 1U);
}

TEST_F(AppDelegateWebManagement, answersARequestThatAnotherOneReplaces)
{
    launchWithPages({adminNamed("Quillbox A")});
    delegate->resolveManagement(adminNamed("Quillbox A"), listener());
    delegate->openManagement();
    EXPECT_THAT(answers, ElementsAre("Another request to open web management came after this one"));
    resolve(1, "192.0.2.1", 1);
    EXPECT_EQ(answers.size(), 1U);
}

TEST_F(AppDelegateWebManagement, anItemResolvesThePhoneOfItsName)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    QAction item;
    item.setData(asData("Quillbox B"));
    delegate->openManagementMenu(item);
    ASSERT_EQ(network.dnsSd().resolutions().size(), 1U);
    EXPECT_EQ(resolution(0).request, adminNamed("Quillbox B"));
}

TEST_F(AppDelegateWebManagement, aButtonResolvesThePhoneOfItsName)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    QPushButton button;
    button.setProperty(AppDelegate::kManagementIdentifier, asData("Quillbox B"));
    delegate->openNamedManagement(button);
    ASSERT_EQ(network.dnsSd().resolutions().size(), 1U);
    EXPECT_EQ(resolution(0).request, adminNamed("Quillbox B"));
}

TEST_F(AppDelegateWebManagement, ofTwoPhonesOfOneNameTheFirstIsResolved)
{
    launchWithPages({adminNamed("Quillbox", "local"), adminNamed("Quillbox", "example.org")});
    QAction item;
    item.setData(asData("Quillbox"));
    delegate->openManagementMenu(item);
    delegate->openManagementMenu(item);
    ASSERT_EQ(network.dnsSd().resolutions().size(), 2U);
    EXPECT_EQ(resolution(0).request, delegate->managementDevices.at(0).endpoint);
    EXPECT_EQ(resolution(1).request, delegate->managementDevices.at(0).endpoint);
}

TEST_F(AppDelegateWebManagement, whereANameLeadsIsLookedUpAtTheClick)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    QPushButton button;
    button.setProperty(AppDelegate::kManagementIdentifier, asData("Quillbox A"));
    findManagement({adminNamed("Quillbox A", "example.org")});
    delegate->openNamedManagement(button);
    ASSERT_EQ(network.dnsSd().resolutions().size(), 1U);
    EXPECT_EQ(resolution(0).request, adminNamed("Quillbox A", "example.org"));
}

TEST_F(AppDelegateWebManagement, aNameIsTheSameInEveryUnicodeForm)
{
    launchWithPages({adminNamed("Quillbox Ku\u0308che")});
    QAction item;
    item.setData(asData("Quillbox K\u00fcche"));
    delegate->openManagementMenu(item);
    ASSERT_EQ(network.dnsSd().resolutions().size(), 1U);
    EXPECT_EQ(resolution(0).request, adminNamed("Quillbox Ku\u0308che")) << "verbatim";
}

TEST_F(AppDelegateWebManagement, aPhoneThatHasLeftIsIgnored)
{
    launchWithPages({adminNamed("Quillbox A"), adminNamed("Quillbox B")});
    QAction item;
    item.setData(asData("Quillbox A"));
    QPushButton button;
    button.setProperty(AppDelegate::kManagementIdentifier, asData("Quillbox A"));
    findManagement({adminNamed("Quillbox B"), adminNamed("quillbox a")});
    delegate->openManagementMenu(item);
    delegate->openNamedManagement(button);
    EXPECT_THAT(network.dnsSd().resolutions(), IsEmpty());
    EXPECT_TRUE(isStatusMarked());
    EXPECT_EQ(workspace.beeps, 0);
}

TEST_F(AppDelegateWebManagement, anItemOrAButtonWithoutANameDoesNothing)
{
    launchWithPages({adminNamed("Quillbox"), adminNamed("Quillbox 1")});
    QAction item;
    QPushButton button;
    delegate->openManagementMenu(item);
    delegate->openNamedManagement(button);
    item.setData(QPoint(1, 1));
    delegate->openManagementMenu(item);
    EXPECT_THAT(network.dnsSd().resolutions(), IsEmpty());
    EXPECT_TRUE(isStatusMarked());
}

TEST_F(AppDelegateWebManagement, anItemWithoutANameLeavesTheRunningRequestAlone)
{
    launchWithPages({adminNamed("Quillbox")});
    delegate->openManagement();
    const QAction item;
    delegate->openManagementMenu(item);
    resolve(0, "192.0.2.7", 8443);
    EXPECT_EQ(workspace.opened.size(), 1U);
}

TEST_F(AppDelegateWebManagement, theEndOfTheProgramCancelsTheRequest)
{
    launchWithPages({adminNamed("Quillbox")});
    delegate->openManagement();
    delegate->applicationWillTerminate();
    EXPECT_TRUE(resolution(0).isEnded());
    dispatch.advance(kResolutionLimit);
    EXPECT_TRUE(isStatusMarked());
}

TEST_F(AppDelegateWebManagement, anAnswerFindsNoControllerThatIsGone)
{
    launchWithPages({adminNamed("Quillbox")});
    delegate->openManagement();
    // Keeps the resolver alive longer than the controller.
    const auto held = delegate->managementResolver;
    resolution(0).tell(found({{ipv4Address("192.0.2.7", 8443), 0}}));
    delegate = nullptr;
    dispatch.runAll();
    EXPECT_THAT(workspace.opened, IsEmpty());
}

TEST_F(AppDelegateWebManagement, theListsOfPagesNeverTouchTheRelays)
{
    launch();
    findPhones({phoneNamed("Quillbox")});
    const auto running = runningListeners();
    findManagement({adminNamed("Quillbox")});
    delegate->openManagement();
    resolve(0, "192.0.2.7", 8443);
    EXPECT_EQ(runningListeners(), running);
}

} // namespace

} // namespace quillbox
