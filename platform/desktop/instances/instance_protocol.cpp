#include "platform/desktop/instances/instance_exchange.h"
#include "platform/desktop/process/process.h"

namespace quillbox::instance_protocol {

namespace {

constexpr std::string_view kActivate = "activate";
constexpr std::string_view kMessage = "message ";
constexpr std::string_view kAnswer = "answer ";
constexpr std::string_view kNoToken = "-";

bool isLine(std::string_view text, std::size_t longest)
{
    return text.size() <= longest && text.find(kEndOfLine) == std::string_view::npos;
}

} // namespace

std::optional<std::string> lineOf(const Request& request)
{
    const bool hasToken = isActivationToken(request.token);
    if (!request.text)
        return std::string(kActivate) + (hasToken ? ' ' + request.token : std::string());
    if (!isLine(*request.text, RunningApplication::kLongestMessage))
        return std::nullopt;
    std::string line(kMessage);
    return line.append(hasToken ? request.token : kNoToken).append(" ").append(*request.text);
}

std::optional<std::string> lineOfAnswer(std::string_view text)
{
    if (!isLine(text, RunningApplication::kLongestAnswer))
        return std::nullopt;
    return std::string(kAnswer).append(text);
}

std::optional<Request> requestIn(std::string_view line)
{
    if (line == kActivate)
        return Request();
    Request request;
    if (line.starts_with(kMessage)) {
        line.remove_prefix(kMessage.size());
        const auto blank = line.find(' ');
        if (blank == std::string_view::npos)
            return std::nullopt;
        request.text = line.substr(blank + 1);
        if (!isLine(*request.text, RunningApplication::kLongestMessage))
            return std::nullopt;
        line = line.substr(0, blank);
    } else if (line.starts_with(kActivate) && line[kActivate.size()] == ' ') {
        line.remove_prefix(kActivate.size() + 1);
    } else {
        return std::nullopt;
    }
    if (!isActivationToken(line))
        return std::nullopt;
    if (!request.text || line != kNoToken)
        request.token = line;
    return request;
}

std::optional<std::string> answerIn(std::string_view line)
{
    if (!line.starts_with(kAnswer))
        return std::nullopt;
    return std::string(line.substr(kAnswer.size()));
}

} // namespace quillbox::instance_protocol
