#include "platform/desktop/presence/status_host_watch.h"

#include <QGuiApplication>
#include <QLibraryInfo>
#include <QTimer>
#include <QVersionNumber>
#include <utility>

namespace quillbox {

namespace {

bool hasTrays()
{
    return QGuiApplication::platformName() == QStringLiteral("xcb");
}

/// On other platforms, such as "offscreen", Qt shows no status items.
bool hasPanels()
{
    return hasTrays() || QGuiApplication::platformName().startsWith(QStringLiteral("wayland"));
}

/// Whether Qt shows items in an X tray while there is a registry for panels, but no panel. Qt 6.4
/// does, Qt 6.8 registers them there instead; the versions between were not tried.
bool usesTraysBesideRegistry()
{
    return QLibraryInfo::version() < QVersionNumber(6, 5);
}

class StatusHostWatch final : public StatusHost {
public:
    explicit StatusHostWatch(std::chrono::milliseconds patienceWithRegistry)
    {
        patience.setSingleShot(true);
        patience.setInterval(patienceWithRegistry);
        QObject::connect(&patience, &QTimer::timeout, &patience, [this] {
            isPatienceOver = true;
            update();
        });
        if (hasTrays())
            trays = std::make_unique<TrayManagerWatch>([this] { update(); });
        if (hasPanels())
            panels = std::make_unique<NotifierWatch>(QDBusConnection::sessionBus(),
                                                     [this] { update(); });
        wait();
        available = find();
    }

    bool isAvailable() const override { return available; }

    void setChangedHandler(std::function<void()> handler) override { changed = std::move(handler); }

private:
    bool find() const
    {
        using State = NotifierWatch::State;
        const State panel = panels ? panels->state() : State::Unknown;
        const bool isTrayUsed =
            panel == State::Absent
            || (panel == State::Watched && isPatienceOver && usesTraysBesideRegistry());
        return panel == State::Hosted || (isTrayUsed && trays && trays->hasManager());
    }

    void wait()
    {
        if (!panels || panels->state() != NotifierWatch::State::Watched) {
            patience.stop();
            isPatienceOver = false;
        } else if (!patience.isActive() && !isPatienceOver) {
            patience.start();
        }
    }

    void update()
    {
        wait();
        if (std::exchange(available, find()) == available)
            return;
        // A copy: the handler may destroy this object.
        if (const auto handler = changed)
            handler();
    }

    QTimer patience;
    bool isPatienceOver = false;
    bool available = false;
    std::function<void()> changed;
    std::unique_ptr<TrayManagerWatch> trays;
    std::unique_ptr<NotifierWatch> panels;
};

} // namespace

std::unique_ptr<StatusHost> makeStatusHostWatch(std::chrono::milliseconds patience)
{
    return std::make_unique<StatusHostWatch>(patience);
}

} // namespace quillbox
