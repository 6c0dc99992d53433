#include "platform/desktop/desktop_entry.h"

#include "platform/text.h"

#include <algorithm>
#include <utility>

namespace quillbox {

namespace {

/// The value after "key=" or "key ="; nullopt if the line has another key.
std::optional<std::string_view> valueOf(std::string_view key, std::string_view line)
{
    if (!line.starts_with(key))
        return std::nullopt;
    line.remove_prefix(std::min(line.find_first_not_of(" \t", key.size()), line.size()));
    if (!line.starts_with('='))
        return std::nullopt;
    line.remove_prefix(std::min(line.find_first_not_of(" \t", 1), line.size()));
    return line;
}

/// Whether a list of strings, separated by semicolons, has this element.
bool lists(std::string_view list, std::string_view wanted)
{
    while (!list.empty()) {
        if (takePart(list, ';') == wanted)
            return true;
    }
    return false;
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

DesktopEntry parsedDesktopEntry(std::string_view text)
{
    DesktopEntry entry;
    bool isInGroup = false;
    while (!text.empty()) {
        const std::string_view line = takeLine(text);
        if (line.starts_with('['))
            isInGroup = line.starts_with("[Desktop Entry]");
        if (!isInGroup)
            continue;
        if (const auto name = valueOf("Name", line))
            entry.name = unescaped(*name);
        if (const auto command = valueOf("Exec", line))
            entry.command = unescaped(*command);
        if (const auto terminal = valueOf("Terminal", line))
            entry.isForTerminal = terminal->starts_with("true");
        if (const auto activatable = valueOf("DBusActivatable", line))
            entry.isBusActivatable = activatable->starts_with("true");
        if (const auto categories = valueOf("Categories", line))
            entry.isFileManager = lists(*categories, "FileManager");
    }
    return entry;
}

std::optional<std::vector<std::string>> argumentsToOpen(const std::string& url,
                                                        const DesktopEntry& entry)
{
    return CommandReader(url, entry).read();
}

} // namespace quillbox
