#pragma once

#include <QByteArray>
#include <functional>
#include <string>
#include <vector>

#include <unistd.h>

namespace quillbox {

/// The user "nobody", who owns no files.
inline constexpr uid_t kNobody = 65534;

/// Runs the event loop until `isDone` returns true or 20 s have passed; returns whether it does.
bool runUntil(const std::function<bool()>& isDone);

/// Sets environment variables and restores them on destruction; an empty value unsets.
class Environment final {
public:
    void set(const char* name, const QByteArray& value);

    Environment() = default;
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment();

private:
    struct Saved {
        QByteArray name;
        QByteArray value;
        bool wasSet;
    };
    std::vector<Saved> saved;
};

/// Switches the effective user from root to "nobody" until it is destroyed, since root bypasses
/// file permissions. Does nothing if the tests do not run as root.
class OrdinaryUser final {
public:
    /// Also makes that user the owner of the folder, permanently.
    explicit OrdinaryUser(const std::string& folder);
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;
    ~OrdinaryUser();

private:
    const uid_t before;
};

/// A named pipe for the output of a program that is not a child of the test.
class NamedPipe final {
public:
    explicit NamedPipe(std::string path);
    ~NamedPipe();

    NamedPipe(const NamedPipe&) = delete;
    NamedPipe& operator=(const NamedPipe&) = delete;

    const std::string& path() const { return path_; }

    /// Returns what all writers write until the last one closes the pipe, which may have happened
    /// before this call. Waits at most 20 s for each piece.
    std::string readAll();

private:
    /// Reopens the reading end: a new one reports no hang-up because of writers that closed the
    /// pipe before.
    void openAnew();

    const std::string path_;
    int reader_ = -1;
};

} // namespace quillbox
