#include "platform/diagnosis/desktop_probes.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QString>
#include <QVariant>
#include <optional>

namespace quillbox::diagnosis {

namespace {

/// What avahi-daemon's GetState returns (AvahiServerState).
enum AvahiServerState { kInvalid, kRegistering, kRunning, kCollision, kFailure };

Seen seen(const std::optional<QVariant>& answer)
{
    if (!answer)
        return Seen::Unknown;
    return answer->toBool() ? Seen::Yes : Seen::No;
}

/// A bus connection that the destructor closes.
class Bus final {
public:
    Bus(QDBusConnection::BusType type, const char* purpose)
        : name(QStringLiteral("quillbox-doctor-") + QLatin1StringView(purpose)),
          connection(QDBusConnection::connectToBus(type, name))
    {
    }

    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
    ~Bus() { QDBusConnection::disconnectFromBus(name); }

    bool isThere() const { return connection.isConnected(); }

    /// The first value of the answer; nullopt on error or timeout.
    std::optional<QVariant> ask(QDBusMessage question, std::chrono::milliseconds limit) const
    {
        question.setAutoStartService(false);
        const auto answer =
            connection.call(question, QDBus::Block, static_cast<int>(limit.count()));
        if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().isEmpty())
            return std::nullopt;
        return answer.arguments().constFirst();
    }

    Seen hasOwner(const char* service, std::chrono::milliseconds limit) const
    {
        auto question = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameHasOwner"));
        question.setArguments({QString::fromLatin1(service)});
        return seen(ask(question, limit));
    }

private:
    const QString name;
    const QDBusConnection connection;
};

constexpr const char* kAvahi = "org.freedesktop.Avahi";

/// Calls a method of avahi-daemon that takes no arguments.
std::optional<QVariant> askAvahi(const Bus& bus, const char* method,
                                 std::chrono::milliseconds limit)
{
    return bus.ask(QDBusMessage::createMethodCall(QLatin1StringView(kAvahi), QStringLiteral("/"),
                                                  QStringLiteral("org.freedesktop.Avahi.Server"),
                                                  QLatin1StringView(method)),
                   limit);
}

AvahiFacts::State stateOf(int state)
{
    if (state == kRunning)
        return AvahiFacts::State::Running;
    return state == kRegistering || state == kCollision ? AvahiFacts::State::Registering
                                                        : AvahiFacts::State::Failed;
}

} // namespace

AvahiFacts probeAvahi(std::chrono::milliseconds limit)
{
    AvahiFacts facts;
    const Bus bus(QDBusConnection::SystemBus, "avahi");
    if (!bus.isThere()) {
        facts.state = AvahiFacts::State::NoBus;
        return facts;
    }
    const Seen isThere = bus.hasOwner(kAvahi, limit);
    if (isThere != Seen::Yes) {
        facts.state = isThere == Seen::No ? AvahiFacts::State::Absent : AvahiFacts::State::Unknown;
        return facts;
    }
    const auto state = askAvahi(bus, "GetState", limit);
    if (!state)
        return facts;
    facts.state = stateOf(state->toInt());
    const auto version = askAvahi(bus, "GetVersionString", limit);
    const auto hostName = askAvahi(bus, "GetHostNameFqdn", limit);
    facts.version = version.value_or(QVariant()).toString().toStdString();
    facts.hostName = hostName.value_or(QVariant()).toString().toStdString();
    return facts;
}

Seen probeFirewalld(std::chrono::milliseconds limit)
{
    const Bus bus(QDBusConnection::SystemBus, "firewalld");
    // firewalld needs the system bus: without a bus it is not running.
    return bus.isThere() ? bus.hasOwner("org.fedoraproject.FirewallD1", limit) : Seen::No;
}

Seen probeStatusPanel(std::chrono::milliseconds limit)
{
    const Bus bus(QDBusConnection::SessionBus, "panel");
    if (!bus.isThere())
        return Seen::No;
    constexpr const char* kWatcher = "org.kde.StatusNotifierWatcher";
    const Seen isThere = bus.hasOwner(kWatcher, limit);
    if (isThere != Seen::Yes)
        return isThere;
    auto question = QDBusMessage::createMethodCall(
        QLatin1StringView(kWatcher), QStringLiteral("/StatusNotifierWatcher"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    question.setArguments(
        {QString::fromLatin1(kWatcher), QStringLiteral("IsStatusNotifierHostRegistered")});
    const auto answer = bus.ask(question, limit);
    return seen(answer ? std::optional(answer->value<QDBusVariant>().variant()) : std::nullopt);
}

} // namespace quillbox::diagnosis
