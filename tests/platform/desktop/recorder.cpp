#include "tests/platform/desktop/recorder.h"

#include "tests/platform/desktop/event_wait.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <array>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillbox {

Recorder::Recorder()
{
    const QByteArray pipe = folder.filePath(QStringLiteral("calls")).toUtf8();
    EXPECT_EQ(::mkfifo(pipe.constData(), 0600), 0);
    // O_RDWR: without a writer of its own, the pipe would be at its end whenever no script writes.
    descriptor = ::open(pipe.constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    notifier = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(),
                     [this] { read(); });
}

Recorder::~Recorder()
{
    notifier.reset();
    ::close(descriptor);
}

QString Recorder::addScript(const QString& name, const QString& rest)
{
    const QString text = QStringLiteral("#!/bin/sh\n"
                                        "line=$(printf '%s|' '%1' \"$@\")\n"
                                        "printf '%s\\n' \"$line\" >'%2/calls'\n")
                             .replace(QStringLiteral("%1"), QFileInfo(name).fileName())
                             .replace(QStringLiteral("%2"), folder.path());
    write(name, text + rest + u'\n');
    QFile::setPermissions(folder.filePath(name),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return folder.filePath(name);
}

void Recorder::write(const QString& name, const QString& text) const
{
    QDir(folder.path()).mkpath(QFileInfo(folder.filePath(name)).path());
    QFile file(folder.filePath(name));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text.toUtf8());
}

QStringList Recorder::calls(int count)
{
    EXPECT_TRUE(waitUntil([&] { return received.count('\n') >= count; }));
    return QString::fromUtf8(received).split(u'\n', Qt::SkipEmptyParts);
}

void Recorder::read()
{
    std::array<char, 4096> buffer{};
    const auto length = ::read(descriptor, buffer.data(), buffer.size());
    if (length > 0)
        received.append(buffer.data(), length);
}

} // namespace quillbox
