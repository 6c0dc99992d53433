#pragma once

#include "platform/desktop/process/process.h"

#include <QProcess>
#include <QTimer>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace quillbox {

/// Runs a program, looked up in PATH, for its result. The arguments are passed verbatim. The
/// program runs in its own session, with the inheritance, and with /dev/null for everything
/// but a collected standard output. Destroying the command kills the program, but not the processes
/// that the program started.
///
/// Main thread only.
class Command final {
public:
    struct Result {
        bool isSuccess = false; ///< it exited with status 0 within the limit
        std::string output;     ///< its standard output, if collected
    };

    enum class Output { Discarded, Collected };

    /// Called once, from the event loop, when the program has ended or `limit` is over. It may
    /// destroy the command.
    using Finished = std::function<void(const Result&)>;

    /// Starts the program. `arguments` begins with its name.
    Command(const std::vector<std::string>& arguments, Output output,
            const Inheritance& inheritance, std::chrono::milliseconds limit, Finished finished);

    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    ~Command();

private:
    void collect();
    void end(bool isSuccess);

    Finished whenFinished;
    std::string collected;
    QProcess process;
    QTimer timer;
};

} // namespace quillbox
