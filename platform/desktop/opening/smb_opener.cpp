#include "platform/desktop/opening/smb_opener.h"

#include "platform/desktop/opening/smb_location.h"
#include "platform/values/standard_error.h"

#include <QElapsedTimer>
#include <QTimer>
#include <algorithm>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace quillbox {

namespace {

/// What all openings share.
struct Means {
    ServiceLocator& locator;
    const FileBrowserMeans& browser;
    SmbOpenerTimes times;
};

/// One URL being opened: located, then handed over to a file manager.
class Opening final : public std::enable_shared_from_this<Opening> {
public:
    using Opened = SmbOpener::Opened;

    Opening(const Means& openerMeans, const std::string& unchangedUrl, const std::string& itsToken,
            std::function<void()> whenFailed)
        : wantedUrl(unchangedUrl),
          means(openerMeans),
          url(unchangedUrl),
          token(itsToken),
          begin(openerMeans.browser.log.now()),
          failed(std::move(whenFailed))
    {
        patience.setSingleShot(true);
        patience.setTimerType(Qt::PreciseTimer);
    }

    const std::string wantedUrl; ///< as passed to SmbOpener::open()

    void start(const SmbLocation& location)
    {
        const auto instanceName = smbInstanceName(location.host);
        if (!instanceName) {
            handOver();
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

    /// Whether the user cannot tell yet that it opens anything.
    bool isRecent() const
    {
        return !sinceHandOver.isValid() || sinceHandOver.elapsed() < means.times.moment.count();
    }

    bool isOver() const { return isOpen; }

    void join(Opened opened)
    {
        if (isOpen)
            report(opened, std::nullopt);
        else
            waiting.push_back(std::move(opened));
    }

private:
    /// The text must not contain `url`, which has an address in it once the server has been found.
    template <typename Text> void tell(Text&& text)
    {
        Log& log = means.browser.log;
        log.tell(LogCategory::Desktop,
                 [&] { return text() + ", after " + durationText(log.now() - begin); });
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
        handOver();
    }

    void handOver()
    {
        sinceHandOver.start();
        showing = showFolder(means.browser, url, token,
                             [this](const std::optional<std::string>& with) { end(with); });
    }

    void end(const std::optional<std::string>& with)
    {
        const auto self = shared_from_this(); // `failed` drops the opening
        if (with) {
            tell([&] { return "opened with " + *with; });
            isOpen = true;
        } else {
            printToStandardError("quillbox-helper: no file manager can open " + url);
            failed();
        }
        const std::optional<std::string> reason =
            with ? std::nullopt : std::optional<std::string>("No file manager opened the share");
        for (const Opened& opened : std::exchange(waiting, {}))
            report(opened, reason);
    }

    static void report(const Opened& opened, const std::optional<std::string>& reason)
    {
        if (opened)
            opened(reason);
    }

    const Means& means;
    std::string url; ///< the URL to open, with the server's address once it is known
    const std::string token;
    const Log::Clock::time_point begin;
    std::function<void()> failed;
    bool isLocated = false;
    bool isOpen = false;
    QTimer patience;
    QElapsedTimer sinceHandOver; ///< invalid before that
    std::unique_ptr<FolderShowing> showing;
    std::vector<Opened> waiting;
};

class DesktopSmbOpener final : public SmbOpener {
public:
    explicit DesktopSmbOpener(const Means& openerMeans) : means(openerMeans) {}

    void open(const std::string& url, const std::string& token, Opened opened) override
    {
        const auto location = parseSmbUrl(url);
        if (!location) {
            printToStandardError("quillbox-helper: not opened, not a valid smb URL: " + url);
            if (opened)
                opened("Not a valid address of a share");
            return;
        }
        std::erase_if(openings, [](const auto& entry) {
            return entry.second->isOver() && !entry.second->isRecent();
        });
        if (const auto recent = recentOpeningOf(url)) {
            recent->join(std::move(opened));
            return;
        }
        const int number = ++lastNumber;
        const auto opening =
            std::make_shared<Opening>(means, url, token, [this, number] { drop(number); });
        openings.emplace(number, opening);
        opening->join(std::move(opened));
        opening->start(*location);
    }

private:
    std::shared_ptr<Opening> recentOpeningOf(const std::string& url) const
    {
        const auto found = std::find_if(openings.begin(), openings.end(), [&url](const auto& each) {
            return each.second->wantedUrl == url && each.second->isRecent();
        });
        return found == openings.end() ? nullptr : found->second;
    }

    /// Called by the opening itself, so it is destroyed later.
    void drop(int number)
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

std::unique_ptr<SmbOpener> makeSmbOpener(ServiceLocator& locator, const FileBrowserMeans& means,
                                         const SmbOpenerTimes& times)
{
    return std::make_unique<DesktopSmbOpener>(
        Means{.locator = locator, .browser = means, .times = times});
}

} // namespace quillbox
