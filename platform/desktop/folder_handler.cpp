#include "platform/desktop/folder_handler.h"

#include "platform/desktop/desktop_entry.h"
#include "platform/text.h"

#include <QFile>
#include <QStandardPaths>
#include <QString>
#include <utility>

namespace quillbox {

namespace {

constexpr std::string_view kEnding = ".desktop";
constexpr qint64 kLongestEntry = 1048576;

enum class Choice { ByUser, Registered };

/// `identifier` is that of a desktop entry, looked up in the user's and the system's folders.
std::optional<FolderHandler> handlerNamed(std::string_view identifier, Choice choice,
                                          const std::string& url)
{
    if (!identifier.ends_with(kEnding) || identifier.find('/') != std::string_view::npos)
        return std::nullopt;
    const QString name =
        QString::fromUtf8(identifier.data(), static_cast<qsizetype>(identifier.size()));
    QFile file(QStandardPaths::locate(QStandardPaths::ApplicationsLocation, name));
    if (file.fileName().isEmpty() || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const DesktopEntry entry = parsedDesktopEntry(file.read(kLongestEntry).toStdString());
    auto arguments = argumentsToOpen(url, entry);
    if (!arguments || entry.isForTerminal || (choice == Choice::Registered && !entry.isFileManager))
        return std::nullopt;
    identifier.remove_suffix(kEnding.size());
    return FolderHandler{.arguments = std::move(*arguments),
                         .busName = std::string(entry.isBusActivatable ? identifier : "")};
}

} // namespace

std::optional<FolderHandler> folderHandlerFor(const std::string& url, std::string_view output)
{
    // "Default application for …: org.example.Files.desktop"
    const std::string_view first = takeLine(output);
    if (const auto colon = first.rfind(": "); colon != std::string_view::npos) {
        if (auto handler = handlerNamed(first.substr(colon + 2), Choice::ByUser, url))
            return handler;
    }
    // One program in each line, behind a tab; headings in between.
    while (!output.empty()) {
        const std::string_view line = takeLine(output);
        if (!line.starts_with('\t'))
            continue;
        if (auto handler = handlerNamed(line.substr(1), Choice::Registered, url))
            return handler;
    }
    return std::nullopt;
}

} // namespace quillbox
