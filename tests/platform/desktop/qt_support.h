#pragma once

#include <QByteArray>
#include <functional>
#include <string>
#include <vector>

#include <unistd.h>

namespace quillbox {

/// The user "nobody", who owns nothing.
inline constexpr uid_t kNobody = 65534;

/// Runs the event loop until `isDone`, a long time at the most; gives whether it is.
bool runUntil(const std::function<bool()>& isDone);

/// Sets environment variables until the end of the test; an empty value unsets.
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

/// Another user than root while it lives, for root may do what others may not. Nothing when the
/// tests are not run by root.
class OrdinaryUser final {
public:
    /// The folder becomes that user's own.
    explicit OrdinaryUser(const std::string& folder);
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;
    ~OrdinaryUser();

private:
    const uid_t before;
};

/// A named pipe, for a program to write to that is nobody's child.
class NamedPipe final {
public:
    explicit NamedPipe(std::string path);
    ~NamedPipe();

    NamedPipe(const NamedPipe&) = delete;
    NamedPipe& operator=(const NamedPipe&) = delete;

    const std::string& path() const { return path_; }

    /// What one writer after the other writes to it until the last one has closed it, be it before
    /// this call.
    std::string readAll();

private:
    /// Whoever opens a pipe learns nothing of a writer that had closed it before.
    void openAnew();

    const std::string path_;
    int reader_ = -1;
};

} // namespace quillbox
