// A panel for status notifier items: the registry (StatusNotifierWatcher) and its only host. With
// "--no-host" it is only the registry until it reads the command "host". Prints what it sees of
// each item, one property per line. The commands "activate" and "context" click the last item with
// the left or the right button, "choose TITLE" an entry of its menu; "look" queries it again.

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QList>
#include <QMap>
#include <QSocketNotifier>
#include <QVariantMap>
#include <cstdio>
#include <iostream>
#include <string>

#include <unistd.h>

namespace {

const QString& registryName()
{
    static const QString name = QStringLiteral("org.kde.StatusNotifierWatcher");
    return name;
}

const QString& registryPath()
{
    static const QString path = QStringLiteral("/StatusNotifierWatcher");
    return path;
}

void print(const QString& line)
{
    std::puts(line.toUtf8().constData());
    std::fflush(stdout);
}

int countPixmaps(const QDBusArgument& pixmaps)
{
    int count = 0;
    pixmaps.beginArray();
    while (!pixmaps.atEnd()) {
        int width = 0;
        int height = 0;
        QByteArray bytes;
        pixmaps.beginStructure();
        pixmaps >> width >> height >> bytes;
        pixmaps.endStructure();
        if (bytes.size() == qsizetype(4) * width * height)
            ++count;
    }
    pixmaps.endArray();
    return count;
}

QString titleOfToolTip(const QDBusArgument& toolTip)
{
    QString iconName;
    QString title;
    QString text;
    toolTip.beginStructure();
    toolTip >> iconName;
    countPixmaps(toolTip);
    toolTip >> title >> text;
    toolTip.endStructure();
    return title;
}

/// Returns the numbers of the entries by their titles.
QMap<QString, int> printMenu(const QDBusArgument& menu)
{
    QMap<QString, int> numbers;
    QList<QDBusArgument> waiting{menu};
    while (!waiting.isEmpty()) {
        const QDBusArgument entry = waiting.takeFirst();
        int identifier = 0;
        QVariantMap properties;
        entry.beginStructure();
        entry >> identifier >> properties;
        if (const QString title = properties.value(QStringLiteral("label")).toString();
            !title.isEmpty()) {
            numbers.insert(title, identifier);
            print(QStringLiteral("entry ") + title);
        }
        entry.beginArray();
        while (!entry.atEnd()) {
            QDBusVariant child;
            entry >> child;
            waiting.append(child.variant().value<QDBusArgument>());
        }
        entry.endArray();
        entry.endStructure();
    }
    return numbers;
}

class Panel final : public QDBusVirtualObject {
public:
    explicit Panel(bool hasHostAtOnce) : bus(QDBusConnection::sessionBus()), hasHost(hasHostAtOnce)
    {
        bus.registerVirtualObject(registryPath(), this);
        if (bus.registerService(registryName()))
            print(QStringLiteral("running"));
    }

    QString introspect(const QString& path) const override
    {
        if (path != registryPath())
            return {};
        return QStringLiteral(R"(<interface name="org.kde.StatusNotifierWatcher">
            <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
            <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
            <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
            <signal name="StatusNotifierHostRegistered"/>
            </interface>)");
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& /*connection*/) override
    {
        const QString property =
            message.arguments().size() > 1 ? message.arguments().at(1).toString() : QString();
        if (message.member() == QStringLiteral("Get")
            && property == QStringLiteral("IsStatusNotifierHostRegistered")) {
            bus.send(message.createReply(QVariant::fromValue(QDBusVariant(hasHost))));
            return true;
        }
        if (message.member() == QStringLiteral("RegisterStatusNotifierItem")) {
            item = message.service();
            bus.send(message.createReply());
            print(QStringLiteral("item"));
            look();
            return true;
        }
        return false;
    }

    void obey(const std::string& command)
    {
        if (command == "host") {
            hasHost = true;
            bus.send(QDBusMessage::createSignal(registryPath(), registryName(),
                                                QStringLiteral("StatusNotifierHostRegistered")));
        } else if (command == "look") {
            look();
        } else if (command == "activate") {
            click(QStringLiteral("Activate"));
        } else if (command == "context") {
            click(QStringLiteral("ContextMenu"));
        } else if (command.starts_with("choose ")) {
            choose(QString::fromStdString(command.substr(7)));
        }
    }

private:
    QDBusMessage itemCall(const QString& interface, const QString& method) const
    {
        return QDBusMessage::createMethodCall(item, QStringLiteral("/StatusNotifierItem"),
                                              interface, method);
    }

    void click(const QString& method) const
    {
        QDBusMessage call = itemCall(QStringLiteral("org.kde.StatusNotifierItem"), method);
        call.setArguments({10, 10});
        bus.asyncCall(call);
    }

    void choose(const QString& title) const
    {
        QDBusMessage event = QDBusMessage::createMethodCall(
            item, menuPath, QStringLiteral("com.canonical.dbusmenu"), QStringLiteral("Event"));
        event.setArguments({entries.value(title), QStringLiteral("clicked"),
                            QVariant::fromValue(QDBusVariant(QString())), 0U});
        bus.asyncCall(event);
    }

    void look()
    {
        QDBusMessage all =
            itemCall(QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"));
        all.setArguments({QStringLiteral("org.kde.StatusNotifierItem")});
        auto* answer = new QDBusPendingCallWatcher(bus.asyncCall(all), this);
        connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
            const auto properties = qdbus_cast<QVariantMap>(answer->reply().arguments().value(0));
            const auto argument = [&](const char* name) {
                return properties.value(QLatin1String(name)).value<QDBusArgument>();
            };
            print(QStringLiteral("title ") + properties.value(QStringLiteral("Title")).toString());
            print(QStringLiteral("icon ")
                  + properties.value(QStringLiteral("IconName")).toString());
            print(QStringLiteral("tooltip ") + titleOfToolTip(argument("ToolTip")));
            print(QStringLiteral("pictures %1").arg(countPixmaps(argument("IconPixmap"))));
            const bool isMenu = properties.value(QStringLiteral("ItemIsMenu")).toBool();
            print(isMenu ? QStringLiteral("is a menu") : QStringLiteral("has a menu"));
            menuPath = properties.value(QStringLiteral("Menu")).value<QDBusObjectPath>().path();
            lookAtMenu();
            answer->deleteLater();
        });
    }

    void lookAtMenu()
    {
        QDBusMessage layout = QDBusMessage::createMethodCall(
            item, menuPath, QStringLiteral("com.canonical.dbusmenu"), QStringLiteral("GetLayout"));
        layout.setArguments({0, -1, QStringList()});
        auto* answer = new QDBusPendingCallWatcher(bus.asyncCall(layout), this);
        connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
            entries = printMenu(answer->reply().arguments().value(1).value<QDBusArgument>());
            print(QStringLiteral("end of menu"));
            answer->deleteLater();
        });
    }

    QDBusConnection bus;
    bool hasHost;
    QString item;
    QString menuPath;
    QMap<QString, int> entries;
};

} // namespace

int main(int argumentCount, char** arguments)
{
    const QCoreApplication application(argumentCount, arguments);
    Panel panel(!QCoreApplication::arguments().contains(QStringLiteral("--no-host")));
    QSocketNotifier commands(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&commands, &QSocketNotifier::activated, &panel, [&panel] {
        std::string command;
        if (!std::getline(std::cin, command)) {
            QCoreApplication::quit();
            return;
        }
        panel.obey(command);
    });
    return QCoreApplication::exec();
}
