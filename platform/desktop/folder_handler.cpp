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

struct Candidate {
    FolderHandler handler;
    bool isFileManager = false;
};

/// `identifier` is that of a desktop entry, looked up in the user's and the system's folders.
std::optional<Candidate> candidateNamed(std::string_view identifier, const std::string& url)
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
    if (!arguments || entry.isForTerminal)
        return std::nullopt;
    identifier.remove_suffix(kEnding.size());
    return Candidate{.handler = {.arguments = std::move(*arguments),
                                 .busName = std::string(entry.isBusActivatable ? identifier : "")},
                     .isFileManager = entry.isFileManager};
}

} // namespace

std::optional<FolderHandler> folderHandlerFor(const std::string& url, std::string_view output)
{
    // "Default application for …: org.example.Files.desktop"
    const std::string_view first = takeLine(output);
    const auto colon = first.rfind(": ");
    auto chosen = colon == std::string_view::npos ? std::nullopt
                                                  : candidateNamed(first.substr(colon + 2), url);
    // One program in each line, behind a tab; headings in between.
    while (!output.empty() && !(chosen && chosen->isFileManager)) {
        const std::string_view line = takeLine(output);
        if (!line.starts_with('\t'))
            continue;
        auto registered = candidateNamed(line.substr(1), url);
        if (registered && registered->isFileManager)
            chosen = std::move(registered);
    }
    return chosen ? std::optional(std::move(chosen->handler)) : std::nullopt;
}

} // namespace quillbox
