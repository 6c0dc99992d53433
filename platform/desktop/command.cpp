#include "platform/desktop/command.h"

#include <QProcessEnvironment>
#include <QStringList>
#include <algorithm>
#include <csignal>
#include <utility>

#include <unistd.h>

namespace quillbox {

namespace {

/// In bytes; the rest is discarded. The programs that are run here print less.
constexpr std::size_t kMostOutput = 65536;

/// Runs in the child before exec: only async-signal-safe calls.
void prepare(const InheritedLimits& limits)
{
    ::setsid();
    if (limits.isOpenFilesKnown)
        ::setrlimit(RLIMIT_NOFILE, &limits.openFiles);
    sigset_t none;
    sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

} // namespace

Command::Command(const std::vector<std::string>& arguments, Output output,
                 const InheritedLimits& limits, std::chrono::milliseconds limit, Finished finished)
    : isCollecting(output == Output::Collected), whenFinished(std::move(finished))
{
    QStringList texts;
    for (const std::string& argument : arguments)
        texts.append(QString::fromStdString(argument));
    process.setProgram(texts.takeFirst());
    process.setArguments(texts);
    if (!limits.hadRuntimeFolder) {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QLatin1StringView(kRuntimeFolderVariable));
        process.setProcessEnvironment(environment);
    }
    process.setChildProcessModifier([limits] { prepare(limits); });
    process.setStandardInputFile(QProcess::nullDevice());
    // Not a pipe: a file manager that is started here may outlive this process, and would then be
    // killed by SIGPIPE.
    process.setStandardErrorFile(QProcess::nullDevice());
    if (!isCollecting)
        process.setStandardOutputFile(QProcess::nullDevice());
    QObject::connect(&process, &QProcess::readyReadStandardOutput, &process, [this] { collect(); });
    QObject::connect(&process, &QProcess::finished, &timer,
                     [this](int code, QProcess::ExitStatus status) {
                         end(status == QProcess::NormalExit && code == 0);
                     });
    QObject::connect(&process, &QProcess::errorOccurred, &timer,
                     [this](QProcess::ProcessError error) {
                         if (error == QProcess::FailedToStart)
                             timer.start(0); // emitted inside start(): report it later
                     });
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &timer, [this] { end(false); });
    timer.start(limit);
    process.start();
}

Command::~Command()
{
    process.disconnect();
    // Reaps the child, which SIGKILL ends at once.
    process.kill();
    process.waitForFinished();
}

void Command::collect()
{
    const QByteArray bytes = process.readAllStandardOutput();
    const auto room = kMostOutput - collected.size();
    collected.append(bytes.constData(), std::min(room, static_cast<std::size_t>(bytes.size())));
}

void Command::end(bool isSuccess)
{
    timer.stop();
    process.disconnect(&timer);
    if (isCollecting)
        collect();
    const Result result{.isSuccess = isSuccess, .output = std::move(collected)};
    const Finished handler = std::exchange(whenFinished, nullptr);
    if (handler)
        handler(result);
}

} // namespace quillbox
