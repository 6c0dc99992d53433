#include "control/remote_control.h"
#include "tests/fakes/fake_running_applications.h"

#include <chrono>
#include <string>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class RemoteControl : public ::testing::Test {
protected:
    CommandResult give(const ControlRequest& request, StatusForm form = StatusForm::Plain)
    {
        return control(&copy, request, form);
    }

    void willAnswer(const ControlAnswer& answer)
    {
        copy.answers = [text = encoded(answer)](const std::string&) { return text; };
    }

    FakeRunningApplication copy{Launch{}};
};

TEST_F(RemoteControl, aProgramThatIsNotRunningIsSaid)
{
    const auto result = control(nullptr, {.command = ControlCommand::Status}, StatusForm::Plain);
    EXPECT_EQ(result.exitStatus, exit_status::kNotRunning);
    EXPECT_THAT(result.complaints,
                ElementsAre("quillbox-helper: Quillbox Helper is not running; start it with "
                            "'quillbox-helper' or from the applications menu"));
    EXPECT_EQ(result.output, "");
}

TEST_F(RemoteControl, theStatusIsPrinted)
{
    const HelperStatus status{.isReady = true, .text = "fine"};
    willAnswer({.status = status});
    auto result = give({.command = ControlCommand::Status});
    EXPECT_EQ(result.exitStatus, exit_status::kDone);
    EXPECT_EQ(result.output, plainText(status));
    EXPECT_THAT(result.complaints, IsEmpty());
    result = give({.command = ControlCommand::Status}, StatusForm::Json);
    EXPECT_EQ(result.output, jsonText(status));
    EXPECT_THAT(copy.asked, ElementsAre(encoded(ControlRequest{}), encoded(ControlRequest{})));
}

TEST_F(RemoteControl, whatWasDoneIsDoneWithoutAWord)
{
    willAnswer({});
    for (const auto command : {ControlCommand::Open, ControlCommand::Manage,
                               ControlCommand::Restart, ControlCommand::Quit}) {
        const auto result = give({.command = command});
        EXPECT_EQ(result.exitStatus, exit_status::kDone);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.complaints, IsEmpty());
    }
}

TEST_F(RemoteControl, aRefusalGivesItsReasonAndTheChoice)
{
    willAnswer({.outcome = ControlOutcome::Refused,
                .text = "Choose \x1b[2J",
                .phones = {"Quillbox A", "Quillbox \u202eB"}});
    const auto result = give({.command = ControlCommand::Open});
    EXPECT_EQ(result.exitStatus, exit_status::kRefused);
    EXPECT_THAT(result.complaints,
                ElementsAre("quillbox-helper: Choose \uFFFD[2J", "The phones are:", "  Quillbox A",
                            "  Quillbox \uFFFDB"));
}

TEST_F(RemoteControl, anUnknownPhoneIsToldWithThoseThatThereAre)
{
    const ControlRequest request{.command = ControlCommand::Open, .phone = "Quillbox \x1b"};
    willAnswer({.outcome = ControlOutcome::UnknownPhone, .phones = {"Quillbox A"}});
    EXPECT_EQ(give(request).exitStatus, exit_status::kUnknownPhone);
    EXPECT_THAT(give(request).complaints,
                ElementsAre("quillbox-helper: there is no phone named \"Quillbox \uFFFD\"",
                            "The phones are:", "  Quillbox A"));
    willAnswer({.outcome = ControlOutcome::UnknownPhone});
    EXPECT_THAT(give(request).complaints,
                ElementsAre(HasSubstr("no phone named"), "No phone is available at the moment."));
}

TEST_F(RemoteControl, aCopyThatDoesNotAnswerIsSaid)
{
    const auto result = give({.command = ControlCommand::Restart});
    EXPECT_EQ(result.exitStatus, exit_status::kNoAnswer);
    EXPECT_THAT(result.complaints,
                ElementsAre("quillbox-helper: the running instance does not respond"));
}

TEST_F(RemoteControl, aCopyOfAnotherVersionIsSaid)
{
    copy.answers = [](const std::string&) { return R"({"version":9})"; };
    auto result = give({.command = ControlCommand::Status});
    EXPECT_EQ(result.exitStatus, exit_status::kNoAnswer);
    EXPECT_THAT(result.complaints, ElementsAre(HasSubstr("a different version")));

    willAnswer({.outcome = ControlOutcome::NotUnderstood, .text = "takes version 2"});
    result = give({.command = ControlCommand::Status});
    EXPECT_EQ(result.exitStatus, exit_status::kNoAnswer);
    EXPECT_THAT(result.complaints, ElementsAre("quillbox-helper: takes version 2"));

    willAnswer({.outcome = ControlOutcome::NotUnderstood, .text = "\x1b[2J"});
    result = give({.command = ControlCommand::Status});
    EXPECT_THAT(result.complaints, ElementsAre("quillbox-helper: \uFFFD[2J"));

    willAnswer({}); // no status, though it was asked for
    EXPECT_EQ(give({.command = ControlCommand::Status}).exitStatus, exit_status::kNoAnswer);
}

TEST_F(RemoteControl, afterQuitItIsWaitedForTheEnd)
{
    willAnswer({});
    copy.endsWhenAsked = false;
    const auto result = give({.command = ControlCommand::Quit});
    EXPECT_EQ(result.exitStatus, exit_status::kNoAnswer);
    EXPECT_THAT(result.complaints, ElementsAre(HasSubstr("has not exited yet")));
    ASSERT_EQ(copy.limits.size(), 2U);
    EXPECT_GE(copy.limits[1], std::chrono::seconds(1)) << "a shutdown takes less";
}

TEST_F(RemoteControl, openingIsWaitedForLongerThanItTakes)
{
    give({.command = ControlCommand::Open});
    give({.command = ControlCommand::Manage});
    for (const auto limit : copy.limits)
        EXPECT_GT(limit, std::chrono::seconds(25));
}

} // namespace

} // namespace quillbox
