// A file manager on the session bus that handles one call: it runs the script named by its first
// argument with the method name and the folders to show, replies and exits. Gives up after 20 s.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QTimer>
#include <chrono>

namespace {

class FileManager final : public QDBusVirtualObject {
public:
    QString introspect(const QString& /*path*/) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        QProcess::execute(QCoreApplication::arguments().at(1),
                          QStringList(message.member())
                              + message.arguments().value(0).toStringList());
        connection.send(message.createReply());
        QTimer::singleShot(0, this, [] { QCoreApplication::quit(); });
        return true;
    }
};

} // namespace

int main(int argumentCount, char** arguments)
{
    const QCoreApplication application(argumentCount, arguments);
    FileManager fileManager;
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.registerVirtualObject(QStringLiteral("/org/freedesktop/FileManager1"), &fileManager);
    if (!bus.registerService(QStringLiteral("org.freedesktop.FileManager1")))
        return 1;
    QTimer::singleShot(std::chrono::seconds(20), &fileManager, [] { QCoreApplication::exit(1); });
    return QCoreApplication::exec();
}
