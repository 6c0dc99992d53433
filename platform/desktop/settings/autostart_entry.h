#pragma once

#include <optional>
#include <string>

namespace quillbox {

/// The desktop entry that starts the program at login without showing its window (Desktop
/// Application Autostart Specification). Needs no application object and no display.

enum class Autostart { On, Off };

/// What was done, or why it failed, as a message for the user.
struct AutostartResult {
    enum class Outcome {
        Done,
        Refused, ///< the user or the desktop does not want it
        Failed,
    };

    Outcome outcome = Outcome::Failed;
    std::string text;
};

/// The absolute path of this program's executable; empty if it cannot be determined.
std::string ownProgram();

/// The text of the entry for a program. nullopt for a path that an entry cannot contain (Desktop
/// Entry Specification): not absolute, not UTF-8, or with control characters or "=".
std::optional<std::string> autostartText(const std::string& program);

/// Writes the entry at `path` atomically, replacing an existing one, or removes it. Succeeds if
/// there is nothing to change.
AutostartResult setAutostart(Autostart wanted, const std::string& path, const std::string& program);

} // namespace quillbox
