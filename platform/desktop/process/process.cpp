#include "platform/desktop/process/process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillbox {

namespace {

constexpr int kLastStandardDescriptor = STDERR_FILENO;

constexpr std::size_t kLongestToken = 400;
constexpr std::string_view kWaylandToken = "XDG_ACTIVATION_TOKEN=";
constexpr std::string_view kX11Token = "DESKTOP_STARTUP_ID=";
constexpr std::array<std::string_view, 3> kOwnVariables{kWaylandToken, kX11Token,
                                                        "WAYLAND_SOCKET="};

void openStandardDescriptors()
{
    int descriptor = ::open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor < kLastStandardDescriptor)
        descriptor = ::open("/dev/null", O_RDWR);
    if (descriptor > kLastStandardDescriptor)
        ::close(descriptor);
}

void waitFor(pid_t process)
{
    while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void reportFailure(int descriptor)
{
    constexpr char kFailed = 1;
    [[maybe_unused]] const auto written = ::write(descriptor, &kFailed, sizeof kFailed);
}

/// The texts as exec(3) takes them.
std::vector<char*> vectorOf(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// Runs in the child of a multi-threaded process: only async-signal-safe calls from here on.
[[noreturn]] void becomeProgram(char* const* arguments, char* const* environment,
                                const Inheritance& inheritance, bool isWatched, int errorDescriptor)
{
    passOn(inheritance);
    const int nothing = ::open("/dev/null", O_RDWR);
    if (nothing >= 0) {
        ::dup2(nothing, STDIN_FILENO);
        ::dup2(nothing, STDOUT_FILENO);
        if (isWatched)
            ::dup2(nothing, STDERR_FILENO);
        if (nothing > kLastStandardDescriptor)
            ::close(nothing);
    }
    ::execvpe(arguments[0], arguments, environment);
    reportFailure(errorDescriptor);
    ::_exit(EXIT_FAILURE);
}

/// Waits for the end of the program, its child, for a moment. Runs in a copy of this process, whose
/// connections it must not keep open meanwhile.
void watch(pid_t program, int report, std::chrono::milliseconds moment)
{
    constexpr unsigned kFirst = kLastStandardDescriptor + 1;
    const auto kept = static_cast<unsigned>(report);
    if (kept > kFirst)
        ::close_range(kFirst, kept - 1, 0);
    ::close_range(kept + 1, ~0U, 0);
    // Not pidfd_open(): the header of glibc 2.36 that declares it is for C only.
    pollfd end{static_cast<int>(::syscall(SYS_pidfd_open, program, 0)), POLLIN, 0};
    int status = 0;
    if (end.fd >= 0 && ::poll(&end, 1, static_cast<int>(moment.count())) > 0
        && ::waitpid(program, &status, 0) == program && status != 0)
        reportFailure(report);
}

} // namespace

bool isActivationToken(std::string_view text)
{
    return !text.empty() && text.size() <= kLongestToken
           && std::all_of(text.begin(), text.end(),
                          [](char character) { return character > ' ' && character < '\x7f'; });
}

std::string activationTokenOfEnvironment()
{
    for (const std::string_view variable : {kWaylandToken, kX11Token}) {
        const std::string name(variable.substr(0, variable.size() - 1));
        // NOLINTNEXTLINE(concurrency-mt-unsafe): called at startup, while there is one thread
        if (const char* token = std::getenv(name.c_str()); token && isActivationToken(token))
            return token;
    }
    return {};
}

std::vector<std::string> environmentForPrograms()
{
    std::vector<std::string> variables;
    for (char** variable = environ; variable && *variable; ++variable) {
        const std::string_view text(*variable);
        if (std::none_of(kOwnVariables.begin(), kOwnVariables.end(),
                         [text](std::string_view own) { return text.starts_with(own); }))
            variables.emplace_back(text);
    }
    return variables;
}

Inheritance withActivationToken(Inheritance inheritance, const std::string& token)
{
    if (!token.empty()) {
        inheritance.environment.push_back(std::string(kWaylandToken) + token);
        inheritance.environment.push_back(std::string(kX11Token) + token);
    }
    return inheritance;
}

Inheritance prepareProcess()
{
    openStandardDescriptors();

    Inheritance inheritance{.environment = environmentForPrograms()};
    if (rlimit files{}; ::getrlimit(RLIMIT_NOFILE, &files) == 0) {
        inheritance.openFiles = files;
        files.rlim_cur = files.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &files);
    }
    struct sigaction ignore {};
    struct sigaction before {};
    ignore.sa_handler = SIG_IGN;
    if (::sigaction(SIGPIPE, &ignore, &before) == 0)
        inheritance.wasPipeSignalIgnored = before.sa_handler == SIG_IGN;
    return inheritance;
}

void passOn(const Inheritance& inheritance)
{
    if (inheritance.openFiles)
        ::setrlimit(RLIMIT_NOFILE, &*inheritance.openFiles);
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGALRM})
        ::sigaction(signal, &action, nullptr);
    if (!inheritance.wasPipeSignalIgnored)
        ::sigaction(SIGPIPE, &action, nullptr);
    sigset_t none;
    sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

FileDescriptor startWatched(const std::vector<std::string>& command, const Inheritance& inheritance,
                            std::chrono::milliseconds moment)
{
    auto texts = command;
    auto variables = inheritance.environment;
    const auto arguments = vectorOf(texts);
    const auto environment = vectorOf(variables);
    const bool isWatched = moment.count() > 0;

    // Close-on-exec, and written to after a failure only: the end of file means success.
    std::array<int, 2> report{-1, -1};
    if (::pipe2(report.data(), O_CLOEXEC) != 0)
        return {};
    FileDescriptor result(report[0]);
    const FileDescriptor reporting(report[1]);
    // Only what is async-signal-safe may run in a copy of a process with threads: _Fork() is.
    const pid_t child = ::_Fork();
    if (child == 0) {
        // The program, and what watches it, are adopted by init, which reaps them.
        ::setsid();
        if (const pid_t watcher = isWatched ? ::_Fork() : 0; watcher != 0) {
            if (watcher < 0)
                reportFailure(report[1]);
            ::_exit(EXIT_SUCCESS);
        }
        const pid_t program = ::_Fork();
        if (program == 0)
            becomeProgram(arguments.data(), environment.data(), inheritance, isWatched, report[1]);
        if (program < 0)
            reportFailure(report[1]);
        else if (isWatched)
            watch(program, report[1], moment);
        ::_exit(EXIT_SUCCESS);
    }
    if (child < 0)
        return {};
    waitFor(child);
    return result;
}

bool hasStayed(int result)
{
    char failure = 0;
    ssize_t length = -1;
    do {
        length = ::read(result, &failure, sizeof failure);
    } while (length < 0 && errno == EINTR);
    return length == 0;
}

bool startDetached(const std::vector<std::string>& command, const Inheritance& inheritance)
{
    const FileDescriptor result = startWatched(command, inheritance, {});
    return result.isOpen() && hasStayed(result.get());
}

void endProcessWithin(std::chrono::milliseconds limit)
{
    struct sigaction action {};
    action.sa_handler = [](int) { ::_exit(EXIT_SUCCESS); };
    ::sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    ::pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);

    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
    const std::chrono::microseconds rest = limit - seconds;
    itimerval timer{};
    timer.it_value.tv_sec = seconds.count();
    timer.it_value.tv_usec = rest.count();
    ::setitimer(ITIMER_REAL, &timer, nullptr);
}

} // namespace quillbox
