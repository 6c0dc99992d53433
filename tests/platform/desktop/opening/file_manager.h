#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QString>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

/// A file manager on the session bus that records what it is asked to show.
class FileManager final : public QDBusVirtualObject {
public:
    enum class Manner { Obliging, Refusing, Silent };

    /// Takes the name on the bus, with the object whose path consists of the same words.
    FileManager(const QDBusConnection& connection, Manner itsManner,
                const QString& name = QStringLiteral("org.freedesktop.FileManager1"))
        : bus(connection), manner(itsManner)
    {
        bus.registerVirtualObject(u'/' + QString(name).replace(u'.', u'/').replace(u'-', u'_'),
                                  this);
        EXPECT_TRUE(bus.registerService(name));
    }

    QString introspect(const QString& /*path*/) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& /*connection*/) override
    {
        calls.push_back(message);
        for (const QString& folder : message.arguments().value(0).toStringList())
            folders.push_back(folder.toStdString());
        if (manner == Manner::Obliging)
            bus.send(message.createReply());
        else if (manner == Manner::Refusing)
            refuse(message);
        return true;
    }

    void refuse(const QDBusMessage& message)
    {
        bus.send(message.createErrorReply(QStringLiteral("org.example.No"), QString()));
    }

    QDBusConnection bus;
    const Manner manner;
    std::vector<QDBusMessage> calls;
    std::vector<std::string> folders;
};

} // namespace quillbox
