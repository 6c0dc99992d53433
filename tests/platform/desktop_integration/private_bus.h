#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace quillbox {

/// A session bus that only one test knows. It ends with the object.
class PrivateBus final {
public:
    PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus();

    /// A new connection each time.
    QDBusConnection connect();

    /// From now on the bus starts `program` for whoever calls `name`. Before the first connection.
    void makeActivatable(const QString& name, const QString& program);

private:
    void start();

    QTemporaryDir folder;
    QProcess process;
    QString address;
    QStringList connectionNames;
};

} // namespace quillbox
