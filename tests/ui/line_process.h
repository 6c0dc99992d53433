#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

namespace quillbox {

/// A process with which a test exchanges lines. The destructor kills it.
class LineProcess final {
public:
    /// `environment` has "NAME=value" entries, which override the test's own environment.
    LineProcess(const QString& program, const QStringList& arguments,
                const QStringList& environment = {});

    LineProcess(const LineProcess&) = delete;
    LineProcess& operator=(const LineProcess&) = delete;
    ~LineProcess();

    /// The next line of its output that begins with `beginning`; skips other lines. A null string
    /// if none arrives within ten seconds.
    QString lineFrom(const QString& beginning);

    /// Whether such a line has arrived, or arrives within the time.
    bool hasLine(const QString& beginning, int milliseconds);

    void write(const QString& line);

    /// Kills the process (SIGKILL).
    void kill();

private:
    QProcess process;
};

} // namespace quillbox
