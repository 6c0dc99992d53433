#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillbox {

/// What the main group of a desktop entry says about its program (Desktop Entry Specification of
/// freedesktop.org). A value.
struct DesktopEntry {
    std::string name = {};
    std::string command = {}; ///< the value of Exec, without the escapes of the file format
    bool isForTerminal = false;
    bool isBusActivatable = false;
    bool isFileManager = false;

    bool operator==(const DesktopEntry&) const = default;
};

/// Parses the text of a desktop entry; skips what it does not know.
DesktopEntry parsedDesktopEntry(std::string_view text);

/// The arguments that make the program open a URL, which they contain unchanged. (`gio launch`
/// would not do: where GVfs runs, it changes the share in an smb URL to lower case.) nullopt if the
/// program takes no URLs, or if its command is malformed.
std::optional<std::vector<std::string>> argumentsToOpen(const std::string& url,
                                                        const DesktopEntry& entry);

/// A program that opens folders by their URL: it needs no terminal, and its desktop entry says that
/// it takes URLs. A program that does not would be started without the URL and show another folder.
struct FolderHandler {
    std::vector<std::string> arguments; ///< to start it with; they contain the URL
    std::string busName;                ///< under which it opens URLs; empty if it does not
};

/// Chooses from the output of `gio mime inode/directory` in the locale "C" what opens the folder at
/// `url`: the default program if somebody has chosen it or if it is a file manager, else the first
/// file manager among the registered programs, else the default program. Where nobody has chosen
/// one, `gio` names the first program that takes folders, which may be one that shows how full a
/// disk is. nullopt if none of them takes URLs.
std::optional<FolderHandler> folderHandlerFor(const std::string& url, std::string_view output);

} // namespace quillbox
