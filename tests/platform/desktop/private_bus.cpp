#include "tests/platform/desktop/private_bus.h"

#include <QDir>
#include <QFile>
#include <QUuid>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

constexpr int kPatience = 10'000;

void writeFile(const QString& path, const QString& text)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text.toUtf8());
}

} // namespace

PrivateBus::PrivateBus()
{
    QDir(folder.path()).mkdir(QStringLiteral("services"));
    writeFile(folder.filePath(QStringLiteral("bus.conf")), QStringLiteral(R"(<busconfig>
        <type>session</type>
        <listen>unix:path=%1/bus</listen>
        <servicedir>%1/services</servicedir>
        <policy context="default">
            <allow send_destination="*" eavesdrop="true"/>
            <allow eavesdrop="true"/>
            <allow own="*"/>
        </policy>
        </busconfig>)")
                                                               .arg(folder.path()));
}

PrivateBus::~PrivateBus()
{
    for (const QString& name : connectionNames)
        QDBusConnection::disconnectFromBus(name);
    process.kill();
    process.waitForFinished(kPatience);
}

void PrivateBus::makeActivatable(const QString& name, const QString& program)
{
    writeFile(folder.filePath(QStringLiteral("services/test.service")),
              QStringLiteral("[D-BUS Service]\nName=%1\nExec=%2\n").arg(name, program));
}

QDBusConnection PrivateBus::connect()
{
    if (address.isEmpty())
        start();
    connectionNames.append(QUuid::createUuid().toString());
    return QDBusConnection::connectToBus(address, connectionNames.constLast());
}

void PrivateBus::start()
{
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(QStringLiteral("dbus-daemon"),
                  {QStringLiteral("--config-file=") + folder.filePath(QStringLiteral("bus.conf")),
                   QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
    while (!process.canReadLine())
        ASSERT_TRUE(process.waitForReadyRead(kPatience));
    address = QString::fromUtf8(process.readLine()).trimmed();
}

} // namespace quillbox
