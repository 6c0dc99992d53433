#include "platform/desktop/opening/desktop_entry.h"

#include "platform/values/text.h"

#include <algorithm>
#include <utility>

namespace quillbox {

namespace {

void dropSpaces(std::string_view& text)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
}

bool takePrefix(std::string_view& text, std::string_view prefix)
{
    if (!text.starts_with(prefix))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

/// A value of type string without its escapes.
std::string unescaped(std::string_view value)
{
    constexpr std::string_view kLetters = "sntr\\";
    constexpr std::string_view kMeanings = " \n\t\r\\";
    std::string text;
    for (std::size_t at = 0; at < value.size(); ++at) {
        const auto escape = value[at] == '\\' && at + 1 < value.size()
                                ? kLetters.find(value[at + 1])
                                : std::string_view::npos;
        if (escape == std::string_view::npos) {
            text += value[at];
        } else {
            text += kMeanings[escape];
            ++at;
        }
    }
    return text;
}

/// Splits a command into its arguments and replaces its field codes.
class CommandReader final {
public:
    CommandReader(const std::string& urlToOpen, const DesktopEntry& desktopEntry)
        : url(urlToOpen), entry(desktopEntry)
    {
    }

    std::optional<std::vector<std::string>> read()
    {
        const std::string_view text = entry.command;
        for (std::size_t at = 0; at < text.size(); ++at) {
            const char next = at + 1 < text.size() ? text[at + 1] : '\0';
            if (text[at] == '"') {
                isQuoted = !isQuoted;
                isArgument = true;
            } else if (isQuoted && text[at] == '\\' && next != '\0') {
                argument += text[++at];
            } else if (text[at] == '%') {
                insert(next);
                ++at;
            } else if (!isQuoted && text[at] == ' ') {
                endArgument();
            } else {
                argument += text[at];
            }
        }
        endArgument();
        if (isQuoted || !hasUrl || arguments.front() == url)
            return std::nullopt;
        return arguments;
    }

private:
    /// Codes for files, for an icon and deprecated ones stand for nothing here.
    void insert(char code)
    {
        if (code == 'u' || code == 'U') {
            argument += url;
            hasUrl = true;
        } else if (code == 'c') {
            argument += entry.name;
        } else if (code == '%') {
            argument += code;
        }
    }

    void endArgument()
    {
        if (!argument.empty() || isArgument)
            arguments.push_back(std::exchange(argument, {}));
        isArgument = false;
    }

    const std::string& url;
    const DesktopEntry& entry;
    std::vector<std::string> arguments;
    std::string argument;
    bool isArgument = false; ///< even if it is empty
    bool isQuoted = false;
    bool hasUrl = false;
};

} // namespace

std::string_view keyFileValue(std::string_view text, std::string_view group, std::string_view key)
{
    bool isInGroup = false;
    while (!text.empty()) {
        std::string_view line = takeLine(text);
        if (takePrefix(line, "["))
            isInGroup = takePrefix(line, group) && line.starts_with(']');
        if (!isInGroup || !takePrefix(line, key))
            continue;
        dropSpaces(line);
        if (!takePrefix(line, "="))
            continue;
        dropSpaces(line);
        return line;
    }
    return {};
}

bool hasElement(std::string_view list, std::string_view wanted)
{
    while (!list.empty()) {
        if (takePart(list, ';') == wanted)
            return true;
    }
    return false;
}

DesktopEntry parsedDesktopEntry(std::string_view text)
{
    const auto valueOf = [text](std::string_view key) {
        return keyFileValue(text, "Desktop Entry", key);
    };
    return {.name = unescaped(valueOf("Name")),
            .command = unescaped(valueOf("Exec")),
            .isForTerminal = valueOf("Terminal").starts_with("true"),
            .isBusActivatable = valueOf("DBusActivatable").starts_with("true"),
            .isFileManager = hasElement(valueOf("Categories"), "FileManager")};
}

std::optional<std::vector<std::string>> argumentsToOpen(const std::string& url,
                                                        const DesktopEntry& entry)
{
    return CommandReader(url, entry).read();
}

} // namespace quillbox
