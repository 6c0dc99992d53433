#include "platform/desktop/folder_handler.h"

#include <QFile>
#include <QStandardPaths>
#include <QString>
#include <algorithm>

namespace quillbox {

namespace {

constexpr std::string_view kEnding = ".desktop";
constexpr qint64 kLongestEntry = 1048576;

std::string_view takeLine(std::string_view& text)
{
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    return line;
}

/// Whether an Exec value has a field code for URLs, "%u" or "%U"; "%%" is a percent sign.
bool takesUrls(std::string_view command)
{
    for (auto mark = command.find('%'); mark != std::string_view::npos && mark + 1 < command.size();
         mark = command.find('%', mark + 2)) {
        if (command[mark + 1] == 'u' || command[mark + 1] == 'U')
            return true;
    }
    return false;
}

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

bool isForUrls(std::string_view entry)
{
    bool isInGroup = false;
    bool isForTerminal = false;
    bool hasUrls = false;
    while (!entry.empty()) {
        const std::string_view line = takeLine(entry);
        if (line.starts_with('['))
            isInGroup = line.starts_with("[Desktop Entry]");
        if (!isInGroup)
            continue;
        if (const auto command = valueOf("Exec", line))
            hasUrls = takesUrls(*command);
        if (const auto terminal = valueOf("Terminal", line))
            isForTerminal = terminal->starts_with("true");
    }
    return hasUrls && !isForTerminal;
}

} // namespace

std::optional<std::string> folderHandlerIn(std::string_view output)
{
    // "Default application for …: org.example.Files.desktop"; the next lines list other programs.
    const std::string_view line = takeLine(output);
    const auto colon = line.rfind(": ");
    if (colon == std::string_view::npos || !line.ends_with(kEnding))
        return std::nullopt;
    return std::string(line.substr(colon + 2));
}

std::optional<std::string> desktopEntryForUrls(std::string_view identifier)
{
    if (!identifier.ends_with(kEnding) || identifier.find('/') != std::string_view::npos)
        return std::nullopt;
    const QString name =
        QString::fromUtf8(identifier.data(), static_cast<qsizetype>(identifier.size()));
    const QString path = QStandardPaths::locate(QStandardPaths::ApplicationsLocation, name);
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    if (!isForUrls(file.read(kLongestEntry).toStdString()))
        return std::nullopt;
    return path.toStdString();
}

} // namespace quillbox
