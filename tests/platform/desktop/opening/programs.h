#pragma once

#include "platform/desktop/process/process.h"
#include "tests/platform/desktop/qt_support.h"
#include "tests/platform/desktop/recorder.h"

#include <QString>

namespace quillbox {

/// The programs of a desktop: scripts in PATH, and desktop entries in a data folder of their own.
/// Begins with a `gio` that knows no program for folders.
class Programs final : public Recorder {
public:
    Programs()
    {
        environment.set("PATH", path().toUtf8() + ':' + qgetenv("PATH"));
        environment.set("XDG_DATA_HOME", path().toUtf8());
        addGio(QStringLiteral("missing.desktop"));
    }

    /// Installs a `gio` that answers "gio mime" with `handler` and fails for the command `failing`.
    void addGio(const QString& handler, const QString& failing = QStringLiteral("none"))
    {
        addScript(QStringLiteral("gio"), QStringLiteral("if [ \"$1\" = mime ]; then\n"
                                                        "echo 'Default application for x: %1'\n"
                                                        "fi\n"
                                                        "[ \"$1\" != %2 ]")
                                             .arg(handler, failing));
    }

    /// Installs the desktop entry `name`.
    void addHandler(const QString& command, const QString& name = QStringLiteral("files.desktop"),
                    const QString& more = {})
    {
        write(QStringLiteral("applications/") + name,
              QStringLiteral("[Desktop Entry]\nType=Application\nName=Files\n"
                             "MimeType=inode/directory;\nExec=%1\n%2\n")
                  .arg(command, more));
    }

    Inheritance inheritance() const { return {.environment = environmentForPrograms()}; }

    /// Restored when the desktop is gone.
    Environment environment;
};

} // namespace quillbox
