#include "control/remote_control.h"

#include "ui/shown_text.h"

#include <chrono>

namespace quillbox {

namespace {

/// Longer than any answer takes, even on a busy computer.
constexpr std::chrono::milliseconds kAnswerLimit{5000};

/// Includes resolving the address of the phone's share or page and opening it, which have their
/// own, shorter limits (see Workspace::open()).
constexpr std::chrono::milliseconds kOpeningLimit{30'000};

/// A regular shutdown takes less than a second.
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
        result.complaints.emplace_back("No phone is available at the moment.");
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
        return complaint(exit_status::kNoAnswer, "the running instance has not exited yet");
    case ControlCommand::Open:
    case ControlCommand::Manage:
    case ControlCommand::Restart:
        return {};
    }
    return complaint(exit_status::kNoAnswer, "the running instance did not send its status");
}

} // namespace

CommandResult control(RunningApplication* copy, const ControlRequest& request, StatusForm form)
{
    if (!copy)
        return complaint(exit_status::kNotRunning,
                         "Quillbox Helper is not running; start it with 'quillbox-helper' or from "
                         "the applications menu");
    const auto limit = takesPhone(request.command) ? kOpeningLimit : kAnswerLimit;
    const auto text = copy->ask(encoded(request), limit);
    if (!text)
        return complaint(exit_status::kNoAnswer, "the running instance does not respond");
    const auto answer = decodedAnswer(*text);
    if (!answer)
        return complaint(exit_status::kNoAnswer, "the running instance is a different version of "
                                                 "the program; quit it and start it again");
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
