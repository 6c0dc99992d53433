#include "platform/desktop/opening/folder_handler.h"

#include "platform/values/text.h"

#include <QFile>
#include <QStandardPaths>
#include <QString>
#include <algorithm>
#include <utility>

namespace quillbox {

namespace {

constexpr std::string_view kEnding = ".desktop";
constexpr qint64 kMostRead = 1048576;

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

/// The value of `key` in a group of `text`, which has the format of desktop entries (Desktop Entry
/// Specification of freedesktop.org, "Basic format of the file"), with its escapes. Empty if there
/// is none. Refers to `text`.
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

/// Whether such a value is a list that has this element.
bool hasElement(std::string_view list, std::string_view wanted)
{
    while (!list.empty()) {
        if (takePart(list, ';') == wanted)
            return true;
    }
    return false;
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

/// Empty if there is no such file. One that is longer is cut.
std::string textOf(const QString& path)
{
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly))
        return {};
    return file.read(kMostRead).toStdString();
}

/// The names of the files that choose default programs, other than by being registered (MIME
/// Applications Specification, and what `gio` still reads).
QStringList namesOfLists()
{
    QStringList names;
    const QString desktops = qEnvironmentVariable("XDG_CURRENT_DESKTOP").toLower();
    for (const QString& desktop : desktops.split(u':', Qt::SkipEmptyParts))
        names += desktop + QStringLiteral("-mimeapps.list");
    return names + QStringList{QStringLiteral("mimeapps.list"), QStringLiteral("defaults.list")};
}

/// Whether the user, the administrator, the desktop or the distribution has chosen this program
/// for folders.
bool isChosen(std::string_view identifier)
{
    const QStringList folders =
        QStandardPaths::standardLocations(QStandardPaths::GenericConfigLocation)
        + QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation);
    for (const QString& folder : folders) {
        for (const QString& name : namesOfLists()) {
            const std::string text = textOf(folder + u'/' + name);
            for (const char* group : {"Default Applications", "Added Associations"}) {
                if (hasElement(keyFileValue(text, group, "inode/directory"), identifier))
                    return true;
            }
        }
    }
    return false;
}

struct Candidate {
    FolderHandler handler;
    bool isPreferred = false; ///< a file manager, or chosen by somebody
};

/// `identifier` is that of a desktop entry, looked up in the user's and the system's folders.
std::optional<Candidate> candidateNamed(std::string_view identifier, const std::string& url)
{
    if (!identifier.ends_with(kEnding) || identifier.find('/') != std::string_view::npos)
        return std::nullopt;
    const QString name =
        QString::fromUtf8(identifier.data(), static_cast<qsizetype>(identifier.size()));
    const DesktopEntry entry = parsedDesktopEntry(
        textOf(QStandardPaths::locate(QStandardPaths::ApplicationsLocation, name)));
    auto arguments = argumentsToOpen(url, entry);
    if (!arguments || entry.isForTerminal)
        return std::nullopt;
    const bool isPreferred = entry.isFileManager || isChosen(identifier);
    identifier.remove_suffix(kEnding.size());
    return Candidate{.handler = {.arguments = std::move(*arguments),
                                 .busName = std::string(entry.isBusActivatable ? identifier : "")},
                     .isPreferred = isPreferred};
}

} // namespace

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

std::optional<FolderHandler> folderHandlerFor(const std::string& url, std::string_view output)
{
    // "Default application for …: org.example.Files.desktop"
    const std::string_view first = takeLine(output);
    const auto colon = first.rfind(": ");
    auto chosen = colon == std::string_view::npos ? std::nullopt
                                                  : candidateNamed(first.substr(colon + 2), url);
    // One program in each line, behind a tab; headings in between.
    while (!output.empty() && !(chosen && chosen->isPreferred)) {
        const std::string_view line = takeLine(output);
        if (!line.starts_with('\t'))
            continue;
        auto registered = candidateNamed(line.substr(1), url);
        if (registered && registered->isPreferred)
            chosen = std::move(registered);
    }
    return chosen ? std::optional(std::move(chosen->handler)) : std::nullopt;
}

} // namespace quillbox
