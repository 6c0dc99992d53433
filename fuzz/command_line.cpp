// The command line, ports that were typed, and permissions that a launcher handed over.

#include "app/options.h"
#include "app/port_text.h"
#include "platform/desktop/activation.h"

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
    for (const auto& word : words)
        arguments.push_back(word.c_str());
    const auto parsed = parseOptions(arguments);
    if (const auto* error = std::get_if<OptionsError>(&parsed))
        fuzz::require(!error->text.empty(), "a refusal has a reason");
    else
        fuzz::require(words.empty() || words.front().starts_with("--"), "only options are taken");
    parsePort(text);
    if (isActivationToken(text))
        fuzz::require(text.find_first_of(" \n\r") == std::string_view::npos, "one word");
    return 0;
}
