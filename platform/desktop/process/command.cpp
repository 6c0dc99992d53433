#include "platform/desktop/process/command.h"

#include <QStringList>
#include <algorithm>
#include <utility>

#include <unistd.h>

namespace quillbox {

namespace {

/// In bytes; the rest is discarded. The programs that are run here print less.
constexpr std::size_t kMostOutput = 65536;

QStringList listOf(const std::vector<std::string>& texts)
{
    QStringList list;
    for (const std::string& text : texts)
        list.append(QString::fromStdString(text));
    return list;
}

} // namespace

Command::Command(const std::vector<std::string>& arguments, Output output,
                 const Inheritance& inheritance, std::chrono::milliseconds limit, Finished finished)
    : whenFinished(std::move(finished))
{
    QStringList texts = listOf(arguments);
    process.setProgram(texts.takeFirst());
    process.setArguments(texts);
    process.setEnvironment(listOf(inheritance.environment));
    process.setChildProcessModifier([inheritance] {
        ::setsid();
        passOn(inheritance);
    });
    process.setStandardInputFile(QProcess::nullDevice());
    // Not a pipe: a file manager that is started here may outlive this process, and would then be
    // killed by SIGPIPE.
    process.setStandardErrorFile(QProcess::nullDevice());
    if (output == Output::Discarded)
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
    const Result result{.isSuccess = isSuccess, .output = std::move(collected)};
    const Finished handler = std::exchange(whenFinished, nullptr);
    if (handler)
        handler(result);
}

} // namespace quillbox
