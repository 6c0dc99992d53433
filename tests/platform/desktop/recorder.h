#pragma once

#include <QSocketNotifier>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>

namespace quillbox {

/// A folder with scripts that record their calls. Each call is one line: the name of the script and
/// its arguments, each followed by "|".
class Recorder {
public:
    Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    ~Recorder();

    QString path() const { return folder.path(); }

    /// Creates a script that records its call and then runs `rest`, which is shell code. Returns
    /// its path.
    QString addScript(const QString& name, const QString& rest = {});

    void write(const QString& name, const QString& text) const;

    /// Waits for at least `count` calls and returns all calls so far.
    QStringList calls(int count);

private:
    void read();

    QTemporaryDir folder;
    int descriptor = -1;
    std::unique_ptr<QSocketNotifier> notifier;
    QByteArray received;
};

} // namespace quillbox
