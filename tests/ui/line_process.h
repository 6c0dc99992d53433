#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

namespace quillbox {

/// A program that a test talks to in lines. Ended with the object.
class LineProcess final {
public:
    /// `environment` holds "NAME=value" entries, over the test's own.
    LineProcess(const QString& program, const QStringList& arguments,
                const QStringList& environment = {});

    LineProcess(const LineProcess&) = delete;
    LineProcess& operator=(const LineProcess&) = delete;
    ~LineProcess();

    /// The next line of its output that begins with `beginning`; lines in between are skipped. A
    /// null string when none comes within ten seconds.
    QString lineFrom(const QString& beginning);

    /// Whether such a line has come, or comes within the time.
    bool hasLine(const QString& beginning, int milliseconds);

    void write(const QString& line);

    /// Ends the program at once.
    void kill();

private:
    QProcess process;
};

} // namespace quillbox
