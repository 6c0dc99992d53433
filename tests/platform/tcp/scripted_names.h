#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace quillbox {

/// The name that `ScriptedNames` answers for.
inline constexpr const char* kScriptedName = "phone.test";

/// Answers getaddrinfo(3) for `kScriptedName` while it exists; other names are looked up as usual.
/// A lookup is pending until the test answers it. One object at a time. Thread-safe.
class ScriptedNames final {
public:
    ScriptedNames();

    /// Fails all pending lookups, as when no server answers.
    ~ScriptedNames();

    ScriptedNames(const ScriptedNames&) = delete;
    ScriptedNames& operator=(const ScriptedNames&) = delete;

    /// Waits until there have been `count` lookups, whether answered or not; false on timeout.
    bool waitForLookups(std::size_t count, std::chrono::milliseconds limit) const;

    /// The flags (AI_…) of the last lookup.
    int lastFlags() const;

    /// Answers the first pending lookup, or else the next one, with these numeric addresses.
    void answer(std::vector<std::string> addresses);
};

} // namespace quillbox
