#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillbox {

/// The value of `key` in a group of `text`, which has the format of desktop entries (Desktop Entry
/// Specification of freedesktop.org, "Basic format of the file"), with its escapes. Empty if there
/// is none. Refers to `text`.
std::string_view keyFileValue(std::string_view text, std::string_view group, std::string_view key);

/// Whether such a value is a list that has this element.
bool hasElement(std::string_view list, std::string_view wanted);

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

} // namespace quillbox
