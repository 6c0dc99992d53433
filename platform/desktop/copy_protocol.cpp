#include "platform/desktop/copy_protocol.h"

#include "platform/running_applications.h"

#include <algorithm>

namespace quillbox::copy_protocol {

namespace {

constexpr std::string_view kActivate = "activate";
constexpr std::string_view kMessage = "message ";
constexpr std::string_view kAnswer = "answer ";
constexpr std::string_view kNoToken = "-";
constexpr std::size_t kLongestToken = 400;

bool isLine(std::string_view text, std::size_t longest)
{
    return text.size() <= longest && text.find(kEndOfLine) == std::string_view::npos;
}

std::optional<Request> activationIn(std::string_view rest)
{
    if (rest.empty())
        return Request();
    if (rest.front() != ' ' || !isToken(rest.substr(1)))
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
    if (!isToken(token) || !isLine(text, RunningApplication::kLongestMessage))
        return std::nullopt;
    return Request{.kind = Request::Kind::Message,
                   .token = std::string(token == kNoToken ? std::string_view() : token),
                   .text = std::string(text)};
}

} // namespace

bool isToken(std::string_view text)
{
    return !text.empty() && text.size() <= kLongestToken
           && std::all_of(text.begin(), text.end(),
                          [](char character) { return character > ' ' && character < '\x7f'; });
}

std::string activation(std::string_view token)
{
    std::string line(kActivate);
    if (isToken(token))
        line.append(" ").append(token);
    return line;
}

std::optional<std::string> message(std::string_view token, std::string_view text)
{
    if (!isLine(text, RunningApplication::kLongestMessage))
        return std::nullopt;
    std::string line(kMessage);
    line.append(isToken(token) ? token : kNoToken).append(" ").append(text);
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
