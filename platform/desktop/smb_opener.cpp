#include "platform/desktop/smb_opener.h"

#include "platform/desktop/command.h"
#include "platform/desktop/folder_handler.h"
#include "platform/desktop/smb_location.h"
#include "platform/standard_error.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace quillbox {

namespace {

/// What all openings share.
struct Means {
    ServiceLocator& locator;
    QDBusConnection bus;
    InheritedLimits limits;
    Log& log;
    SmbOpenerTimes times;
};

/// One URL being opened. If one step fails, the next one is tried.
class Opening final : public std::enable_shared_from_this<Opening> {
public:
    Opening(const Means& openerMeans, const std::string& unchangedUrl,
            std::function<void()> whenEnded)
        : wantedUrl(unchangedUrl),
          means(openerMeans),
          url(unchangedUrl),
          begin(openerMeans.log.now()),
          ended(std::move(whenEnded))
    {
        patience.setSingleShot(true);
        patience.setTimerType(Qt::PreciseTimer);
    }

    const std::string wantedUrl; ///< as passed to SmbOpener::open()

    void start(const SmbLocation& location)
    {
        const auto instanceName = smbInstanceName(location.host);
        if (!instanceName) {
            askFileManager();
            return;
        }
        QObject::connect(&patience, &QTimer::timeout, &patience, [this] { located(std::nullopt); });
        patience.start(means.times.location);
        means.locator.locate(*instanceName, [weak = weak_from_this(),
                                             location](const std::optional<HostEndpoint>& server) {
            const auto self = weak.lock();
            if (!self)
                return;
            self->located(server ? std::optional(smbUrlAt(location, *server)) : std::nullopt);
        });
    }

private:
    /// The text must not contain `url`, which has an address in it once the server has been found.
    template <typename Text> void tell(Text&& text)
    {
        means.log.tell(LogCategory::Desktop,
                       [&] { return text() + ", after " + durationText(means.log.now() - begin); });
    }

    void located(const std::optional<std::string>& locatedUrl)
    {
        if (std::exchange(isLocated, true))
            return;
        patience.stop();
        tell([&] { return std::string(locatedUrl ? "server found" : "server not found"); });
        // The host name comes from the network and may not result in a valid URL.
        if (locatedUrl && parseSmbUrl(*locatedUrl))
            url = *locatedUrl;
        else
            printToStandardError("quillbox-helper: not found on this network, opening unchanged: "
                                 + url);
        askFileManager();
    }

    /// The bus returns an error at once if the name has no owner and cannot be activated.
    void askFileManager()
    {
        if (!means.bus.isConnected()) {
            askForFolderHandler(); // QtDBus would never report a result
            return;
        }
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.FileManager1"),
            QStringLiteral("/org/freedesktop/FileManager1"),
            QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowFolders"));
        call.setArguments({QStringList(QString::fromStdString(url)), QString()});
        question = std::make_unique<QDBusPendingCallWatcher>(
            means.bus.asyncCall(call, static_cast<int>(means.times.fileManager.count())));
        QObject::connect(question.get(), &QDBusPendingCallWatcher::finished, &patience,
                         [this](QDBusPendingCallWatcher* watcher) {
                             // The watcher is emitting this signal: destroy it later.
                             question.release()->deleteLater();
                             if (watcher->isError())
                                 refuseByFileManager(watcher->error());
                             else
                                 open("the file manager");
                         });
    }

    void refuseByFileManager(const QDBusError& error)
    {
        tell([&] { return "the file manager failed: " + error.name().toStdString(); });
        askForFolderHandler();
    }

    void open(const char* with)
    {
        tell([&] { return std::string("opened with ") + with; });
        ended();
    }

    void askForFolderHandler()
    {
        run({"env", "LC_ALL=C", "gio", "mime", "inode/directory"}, Command::Output::Collected,
            [this](const Command::Result& result) {
                const auto handler = folderHandlerIn(result.output);
                const auto entry = handler ? desktopEntryForUrls(*handler) : std::nullopt;
                if (result.isSuccess && entry)
                    startFolderHandler(*entry);
                else
                    mount();
            });
    }

    void startFolderHandler(const std::string& entry)
    {
        run({"gio", "launch", entry, url}, Command::Output::Discarded,
            [this](const Command::Result& result) {
                if (result.isSuccess)
                    open("the default program for folders");
                else
                    mount();
            });
    }

    /// The result is ignored, because the share may be mounted already: openMounted() shows it.
    void mount()
    {
        run({"gio", "mount", url}, Command::Output::Discarded,
            [this](const Command::Result&) { openMounted(); });
    }

    void openMounted()
    {
        run({"gio", "open", url}, Command::Output::Discarded,
            [this](const Command::Result& result) {
                if (result.isSuccess)
                    return open("gio open");
                printToStandardError("quillbox-helper: no file manager can open " + url);
                ended();
            });
    }

    /// Starts a command. The previous one, which may be the caller, is destroyed once it has
    /// returned.
    void run(const std::vector<std::string>& arguments, Command::Output output,
             Command::Finished finished)
    {
        if (command)
            QTimer::singleShot(0, &patience, [old = std::shared_ptr(std::move(command))] {});
        command = std::make_unique<Command>(arguments, output, means.limits, means.times.program,
                                            std::move(finished));
    }

    const Means& means;
    std::string url; ///< the URL to open, with the server's address once it is known
    const Log::Clock::time_point begin;
    std::function<void()> ended;
    bool isLocated = false;
    QTimer patience;
    std::unique_ptr<QDBusPendingCallWatcher> question;
    std::unique_ptr<Command> command;
};

class DesktopSmbOpener final : public SmbOpener {
public:
    explicit DesktopSmbOpener(Means openerMeans) : means(std::move(openerMeans)) {}

    void open(const std::string& url) override
    {
        const auto location = parseSmbUrl(url);
        if (!location) {
            printToStandardError("quillbox-helper: not opened, not a valid smb URL: " + url);
            return;
        }
        if (isOnItsWay(url))
            return;
        const int number = ++lastNumber;
        const auto opening = std::make_shared<Opening>(means, url, [this, number] { end(number); });
        openings.emplace(number, opening);
        opening->start(*location);
    }

private:
    bool isOnItsWay(const std::string& url) const
    {
        return std::any_of(openings.begin(), openings.end(),
                           [&url](const auto& entry) { return entry.second->wantedUrl == url; });
    }

    /// Called by the opening itself, so it is destroyed later.
    void end(int number)
    {
        const auto found = openings.find(number);
        if (found == openings.end())
            return;
        QTimer::singleShot(0, &context, [old = std::move(found->second)] {});
        openings.erase(found);
    }

    const Means means;
    std::map<int, std::shared_ptr<Opening>> openings;
    int lastNumber = 0;
    QObject context;
};

} // namespace

std::unique_ptr<SmbOpener> makeSmbOpener(ServiceLocator& locator, const QDBusConnection& sessionBus,
                                         const InheritedLimits& limits, Log& log,
                                         const SmbOpenerTimes& times)
{
    return std::make_unique<DesktopSmbOpener>(
        Means{.locator = locator, .bus = sessionBus, .limits = limits, .log = log, .times = times});
}

} // namespace quillbox
