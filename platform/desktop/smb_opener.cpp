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

/// What all URLs are opened with.
struct Means {
    ServiceLocator& locator;
    QDBusConnection bus;
    InheritedLimits limits;
    Log& log;
    SmbOpenerTimes times;
};

/// One URL on its way. Each step that fails leads to the next; the answers tell nothing else.
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

    const std::string wantedUrl; ///< what is to be opened

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
    /// URLs have addresses in them, once the server has been found.
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
        // What a network says about a host is no reason to hand out what is no URL.
        if (locatedUrl && parseSmbUrl(*locatedUrl))
            url = *locatedUrl;
        else
            printToStandardError("quillbox-helper: not found on this network, opened as it is: "
                                 + url);
        askFileManager();
    }

    /// The bus answers at once when nobody has that name and nobody can be started for it.
    void askFileManager()
    {
        if (!means.bus.isConnected()) {
            askForFolderHandler(); // QtDBus would never answer
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
                             // It calls us, so that it has to live on for a moment.
                             question.release()->deleteLater();
                             if (watcher->isError())
                                 refuseByFileManager(watcher->error());
                             else
                                 open("the file manager");
                         });
    }

    void refuseByFileManager(const QDBusError& error)
    {
        tell([&] { return "the file manager does not answer: " + error.name().toStdString(); });
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
                    open("the program for folders");
                else
                    mount();
            });
    }

    /// Whether it worked is shown by what comes next: the share may have been mounted before.
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
                    return open("what was mounted");
                printToStandardError("quillbox-helper: no file browser opens " + url);
                ended();
            });
    }

    /// Ends the command that just finished, which may be the caller, as soon as it has returned.
    void run(const std::vector<std::string>& arguments, Command::Output output,
             Command::Finished finished)
    {
        if (command)
            QTimer::singleShot(0, &patience, [old = std::shared_ptr(std::move(command))] {});
        command = std::make_unique<Command>(arguments, output, means.limits, means.times.program,
                                            std::move(finished));
    }

    const Means& means;
    std::string url; ///< what is opened for it
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
            printToStandardError("quillbox-helper: not opened, for it is no smb URL: " + url);
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

    /// The opening is in the middle of a call to us.
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
