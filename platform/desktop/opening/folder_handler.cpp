#include "platform/desktop/opening/folder_handler.h"

#include "platform/desktop/opening/desktop_entry.h"
#include "platform/values/text.h"

#include <QFile>
#include <QStandardPaths>
#include <QString>
#include <utility>

namespace quillbox {

namespace {

constexpr std::string_view kEnding = ".desktop";
constexpr qint64 kMostRead = 1048576;

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
