#pragma once

#include <QSocketNotifier>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>

namespace quillbox {

/// A folder with scripts that tell how they were called. Each call is one line: the name of the
/// script and its arguments, a "|" behind each.
class Recorder final {
public:
    Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    ~Recorder();

    QString path() const { return folder.path(); }

    /// Makes a script that tells of its call and goes on with `rest`, in the language of the shell.
    /// Returns its path.
    QString addScript(const QString& name, const QString& rest = {});

    void write(const QString& name, const QString& text) const;

    /// Waits for this number of calls and returns what there is.
    QStringList calls(int count);

private:
    void read();

    QTemporaryDir folder;
    int descriptor = -1;
    std::unique_ptr<QSocketNotifier> notifier;
    QByteArray received;
};

} // namespace quillbox
