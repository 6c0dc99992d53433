#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace quillbox {

/// A session bus for one test. The destructor kills it.
class PrivateBus final {
public:
    PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus();

    /// Opens a new connection each time. The first call starts the bus.
    QDBusConnection connect();

    /// Makes the bus start `program` for a call to `name`. To be called before the first `connect`.
    void makeActivatable(const QString& name, const QString& program);

private:
    void start();

    QTemporaryDir folder;
    QProcess process;
    QString address;
    QStringList connectionNames;
};

} // namespace quillbox
