#include "app/remote_control.h"

#include "app/exit_status.h"
#include "app/shown_text.h"

#include <chrono>

namespace quillbox {

namespace {

/// More than any answer takes, on a computer that is busy.
constexpr std::chrono::milliseconds kAnswerLimit{5000};

/// The address of a phone's page is looked for meanwhile, which has a limit of its own.
constexpr std::chrono::milliseconds kManageLimit{10'000};

/// An orderly end takes less than a second.
constexpr std::chrono::milliseconds kEndLimit{5000};

CommandResult complaint(int exitStatus, const std::string& text)
{
    return {.exitStatus = exitStatus, .output = {}, .complaints = {"quillbox-helper: " + text}};
}

void list(CommandResult& result, const std::vector<std::string>& phones)
{
    if (phones.empty())
        return;
    result.complaints.emplace_back("The phones are:");
    for (const std::string& name : phones)
        result.complaints.push_back("  " + shownUtf8(name));
}

CommandResult unknownPhone(const ControlRequest& request, const ControlAnswer& answer)
{
    auto result =
        complaint(exit_status::kUnknownPhone,
                  "there is no phone named \"" + shownUtf8(request.phone.value_or("")) + "\"");
    if (answer.phones.empty())
        result.complaints.emplace_back("No phone is there at present.");
    list(result, answer.phones);
    return result;
}

CommandResult done(RunningApplication& copy, const ControlRequest& request,
                   const ControlAnswer& answer, StatusForm form)
{
    switch (request.command) {
    case ControlCommand::Status:
        if (!answer.status)
            break;
        return {.exitStatus = exit_status::kDone,
                .output =
                    form == StatusForm::Json ? jsonText(*answer.status) : plainText(*answer.status),
                .complaints = {}};
    case ControlCommand::Quit:
        if (copy.waitForEnd(kEndLimit))
            return {};
        return complaint(exit_status::kNoAnswer, "the running copy is still about to end");
    case ControlCommand::Open:
    case ControlCommand::Manage:
    case ControlCommand::Restart:
        return {};
    }
    return complaint(exit_status::kNoAnswer, "the running copy did not tell its status");
}

} // namespace

CommandResult control(RunningApplication* copy, const ControlRequest& request, StatusForm form)
{
    if (!copy)
        return complaint(exit_status::kNotRunning, "Quillbox Helper is not running");
    const auto limit = request.command == ControlCommand::Manage ? kManageLimit : kAnswerLimit;
    const auto text = copy->ask(encoded(request), limit);
    if (!text)
        return complaint(exit_status::kNoAnswer, "the running copy does not answer");
    const auto answer = decodedAnswer(*text);
    if (!answer)
        return complaint(exit_status::kNoAnswer,
                         "the running copy is of another version of the program; start it anew");
    switch (answer->outcome) {
    case ControlOutcome::Done:
        return done(*copy, request, *answer, form);
    case ControlOutcome::UnknownPhone:
        return unknownPhone(request, *answer);
    case ControlOutcome::NotUnderstood:
        return complaint(exit_status::kNoAnswer, shownUtf8(answer->text));
    case ControlOutcome::Refused:
        break;
    }
    auto result = complaint(exit_status::kRefused, shownUtf8(answer->text));
    list(result, answer->phones);
    return result;
}

} // namespace quillbox
