// The command line, typed port numbers, and messages between instances of the program.

#include "control/options.h"
#include "platform/desktop/instances/instance_exchange.h"
#include "platform/desktop/process/process.h"
#include "platform/values/text.h"

#include <string>
#include <vector>

#include "fuzz/harness.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillbox;
    const auto text = fuzz::textOf(data, size);
    std::vector<std::string> words;
    for (auto rest = text; !rest.empty();)
        words.emplace_back(fuzz::takePart(rest));
    std::vector<const char*> arguments;
    arguments.reserve(words.size());
    for (const auto& word : words)
        arguments.push_back(word.c_str());
    const auto parsed = parseOptions(arguments);
    if (const auto* error = std::get_if<std::string>(&parsed))
        fuzz::require(!error->empty(), "an error has a text");
    else
        fuzz::require(words.empty() || words.front() == "-h" || words.front() == "-session"
                          || words.front().starts_with("--")
                          || std::get<Options>(parsed).request.has_value()
                          || std::get<Options>(parsed).isDoctor,
                      "only options and commands are accepted");
    parsePort(text);
    if (isActivationToken(text))
        fuzz::require(text.find_first_of(" \n\r") == std::string_view::npos, "a token is one word");
    if (const auto request = instance_protocol::requestIn(text)) {
        fuzz::require(request->token.empty() || isActivationToken(request->token),
                      "the token of a request is valid");
        const auto line = instance_protocol::lineOf(*request);
        fuzz::require(line && instance_protocol::requestIn(*line) == request,
                      "a parsed request can be encoded again");
    }
    instance_protocol::answerIn(text);
    return 0;
}
