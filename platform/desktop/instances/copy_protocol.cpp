#include "platform/desktop/instances/copy_protocol.h"

#include "platform/desktop/process/process.h"
#include "platform/running_applications.h"

namespace quillbox::copy_protocol {

namespace {

constexpr std::string_view kActivate = "activate";
constexpr std::string_view kMessage = "message ";
constexpr std::string_view kAnswer = "answer ";
constexpr std::string_view kNoToken = "-";

bool isLine(std::string_view text, std::size_t longest)
{
    return text.size() <= longest && text.find(kEndOfLine) == std::string_view::npos;
}

std::optional<Request> activationIn(std::string_view rest)
{
    if (rest.empty())
        return Request();
    if (rest.front() != ' ' || !isActivationToken(rest.substr(1)))
        return std::nullopt;
    return Request{.token = std::string(rest.substr(1)), .text = {}};
}

std::optional<Request> messageIn(std::string_view rest)
{
    const auto blank = rest.find(' ');
    if (blank == std::string_view::npos)
        return std::nullopt;
    const auto token = rest.substr(0, blank);
    const auto text = rest.substr(blank + 1);
    if (!isActivationToken(token) || !isLine(text, RunningApplication::kLongestMessage))
        return std::nullopt;
    return Request{.kind = Request::Kind::Message,
                   .token = std::string(token == kNoToken ? std::string_view() : token),
                   .text = std::string(text)};
}

} // namespace

std::string activation(std::string_view token)
{
    std::string line(kActivate);
    if (isActivationToken(token))
        line.append(" ").append(token);
    return line;
}

std::optional<std::string> message(std::string_view token, std::string_view text)
{
    if (!isLine(text, RunningApplication::kLongestMessage))
        return std::nullopt;
    std::string line(kMessage);
    line.append(isActivationToken(token) ? token : kNoToken).append(" ").append(text);
    return line;
}

std::optional<std::string> answer(std::string_view text)
{
    if (!isLine(text, RunningApplication::kLongestAnswer))
        return std::nullopt;
    return std::string(kAnswer).append(text);
}

std::optional<Request> requestIn(std::string_view line)
{
    if (line.starts_with(kMessage))
        return messageIn(line.substr(kMessage.size()));
    if (line.starts_with(kActivate))
        return activationIn(line.substr(kActivate.size()));
    return std::nullopt;
}

std::optional<std::string> answerIn(std::string_view line)
{
    if (!line.starts_with(kAnswer))
        return std::nullopt;
    return std::string(line.substr(kAnswer.size()));
}

} // namespace quillbox::copy_protocol
