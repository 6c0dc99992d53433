#pragma once

#include <optional>
#include <string>

namespace quillbox {

/// The entry by which a desktop starts the program at login (Desktop Application Autostart
/// Specification), without showing its window. Needs no application object and no display.

enum class Autostart { On, Off };

/// What was done, or why it was not, in words for the user.
struct AutostartResult {
    bool isDone = false;
    std::string text;
};

/// The entry of this user's: "autostart/IDENTIFIER.desktop" in the folder of configuration. Empty
/// when there is no such folder.
std::string autostartPath(const std::string& bundleIdentifier);

/// This program's executable, an absolute path; empty when the system does not tell.
std::string ownProgram();

/// What the entry for a program says. None when an entry cannot name the program (Desktop Entry
/// Specification): a path with control characters or "=", or that is not UTF-8.
std::optional<std::string> autostartText(const std::string& program);

/// Writes the entry, as a whole or not at all and over what is there, or removes it. What is asked
/// for already being so is no failure.
AutostartResult setAutostart(Autostart wanted, const std::string& path, const std::string& program);

} // namespace quillbox
