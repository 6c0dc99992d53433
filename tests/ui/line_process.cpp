#include "tests/ui/line_process.h"

#include <QDeadlineTimer>
#include <QProcessEnvironment>

namespace quillbox {

namespace {

constexpr int kPatience = 10'000;

} // namespace

LineProcess::LineProcess(const QString& program, const QStringList& arguments,
                         const QStringList& environment)
{
    QProcessEnvironment all = QProcessEnvironment::systemEnvironment();
    for (const QString& entry : environment)
        all.insert(entry.section(u'=', 0, 0), entry.section(u'=', 1));
    process.setProcessEnvironment(all);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, arguments);
}

LineProcess::~LineProcess()
{
    kill();
}

QString LineProcess::lineFrom(const QString& beginning)
{
    const QDeadlineTimer deadline(kPatience);
    while (!deadline.hasExpired()) {
        while (process.canReadLine()) {
            QString line = QString::fromUtf8(process.readLine()).chopped(1);
            if (line.startsWith(beginning))
                return line;
        }
        if (!process.waitForReadyRead(static_cast<int>(deadline.remainingTime())))
            return {};
    }
    return {};
}

bool LineProcess::hasLine(const QString& beginning, int milliseconds)
{
    const QDeadlineTimer deadline(milliseconds);
    do {
        while (process.canReadLine()) {
            if (QString::fromUtf8(process.readLine()).startsWith(beginning))
                return true;
        }
    } while (process.waitForReadyRead(static_cast<int>(deadline.remainingTime())));
    return false;
}

void LineProcess::write(const QString& line)
{
    process.write(line.toUtf8() + '\n');
    process.waitForBytesWritten(kPatience);
}

void LineProcess::kill()
{
    process.kill();
    process.waitForFinished(kPatience);
}

} // namespace quillbox
