#include "platform/desktop/opening/smb_opener.h"

#include "platform/values/standard_error.h"
#include "platform/values/text.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QTimer>
#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include <arpa/inet.h>

namespace quillbox {

namespace {

constexpr std::string_view kScheme = "smb://";
constexpr const char* kServiceSuffix = "._smb._tcp.local";
constexpr std::uint16_t kSmbPort = 445;

/// Where the host of an smb URL begins and ends, in a URL without a port. What precedes and follows
/// it is encoded, so that it contains neither "@" nor "/".
struct HostPlace {
    explicit HostPlace(std::string_view url)
        : end(std::min(url.find('/', kScheme.size()), url.size()))
    {
        const auto at = url.substr(0, end).find('@');
        begin = at == std::string_view::npos ? kScheme.size() : at + 1;
    }

    std::size_t begin = 0;
    std::size_t end;
};

/// The instance name, if the host of the URL is the name of a DNS-SD service.
std::optional<std::string> instanceNameIn(const std::string& url)
{
    const HostPlace place(url);
    const auto host = QByteArray::fromPercentEncoding(
        QByteArray::fromStdString(url.substr(place.begin, place.end - place.begin)));
    if (!host.endsWith(kServiceSuffix))
        return std::nullopt;
    return host.first(host.lastIndexOf(kServiceSuffix)).toStdString();
}

bool isIpv6Address(const std::string& text)
{
    in6_addr address{};
    return inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

/// The URL with another host, a name or an IP address (IPv6 optionally with a zone identifier,
/// RFC 6874). nullopt for a host, which comes from the network, that no URL can contain.
std::optional<std::string> urlAt(const HostEndpoint& server, const std::string& url)
{
    const std::string& host = server.host;
    if (host.empty() || host.find('\0') != std::string::npos || !isValidUtf8(host)
        || server.port == 0)
        return std::nullopt;
    const auto scopeMark = std::min(host.find('%'), host.size());
    const std::string address = host.substr(0, scopeMark);
    std::string text = percentEncoded(host, kSubDelimitersInUrls);
    if (isIpv6Address(address)) {
        const auto scope = host.substr(std::min(scopeMark + 1, host.size()));
        text = '[' + address
               + (scope.empty() ? "" : "%25" + percentEncoded(scope, kSubDelimitersInUrls)) + ']';
    }
    if (server.port != kSmbPort)
        text += ':' + std::to_string(server.port);
    const HostPlace place(url);
    return std::string(url).replace(place.begin, place.end - place.begin, text);
}

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

    Opening(const Means& openerMeans, const std::string& unchangedUrl, const std::string& itsToken)
        : wantedUrl(unchangedUrl),
          means(openerMeans),
          url(unchangedUrl),
          token(itsToken),
          begin(openerMeans.browser.log.now())
    {
        patience.setSingleShot(true);
        patience.setTimerType(Qt::PreciseTimer);
    }

    const std::string wantedUrl; ///< as passed to SmbOpener::open()

    void start()
    {
        const auto instanceName = instanceNameIn(url);
        if (!instanceName) {
            handOver();
            return;
        }
        QObject::connect(&patience, &QTimer::timeout, &patience, [this] { located(std::nullopt); });
        patience.start(means.times.location);
        means.locator.locate(*instanceName, [weak = weak_from_this()](const auto& server) {
            if (const auto self = weak.lock())
                self->located(server);
        });
    }

    /// Whether the user cannot tell yet that it opens anything.
    bool isRecent() const
    {
        return !hasFailed
               && (!sinceHandOver.isValid()
                   || sinceHandOver.elapsed() < means.times.moment.count());
    }

    bool isOver() const { return isOpen || hasFailed; }

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

    void located(const std::optional<HostEndpoint>& server)
    {
        if (std::exchange(isLocated, true))
            return;
        patience.stop();
        tell([&] { return std::string(server ? "server found" : "server not found"); });
        if (const auto locatedUrl = server ? urlAt(*server, url) : std::nullopt)
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
        const auto self = shared_from_this(); // a report may make the opener drop it
        if (with) {
            tell([&] { return "opened with " + *with; });
            isOpen = true;
        } else {
            printToStandardError("quillbox-helper: no file manager can open " + url);
            hasFailed = true;
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
    bool isLocated = false;
    bool isOpen = false;
    bool hasFailed = false;
    QTimer patience;
    QElapsedTimer sinceHandOver; ///< invalid before that
    std::unique_ptr<QObject> showing;
    std::vector<Opened> waiting;
};

class DesktopSmbOpener final : public SmbOpener {
public:
    explicit DesktopSmbOpener(const Means& openerMeans) : means(openerMeans) {}

    void open(const std::string& url, const std::string& token, Opened opened) override
    {
        std::erase_if(openings,
                      [](const auto& each) { return each->isOver() && !each->isRecent(); });
        const auto recent = std::find_if(openings.begin(), openings.end(), [&](const auto& each) {
            return each->wantedUrl == url && each->isRecent();
        });
        if (recent != openings.end()) {
            // A copy: the report may open something else.
            const auto joined = *recent;
            joined->join(std::move(opened));
            return;
        }
        const auto opening = std::make_shared<Opening>(means, url, token);
        openings.push_back(opening);
        opening->join(std::move(opened));
        opening->start();
    }

private:
    const Means means;
    std::vector<std::shared_ptr<Opening>> openings;
};

} // namespace

std::unique_ptr<SmbOpener> makeSmbOpener(ServiceLocator& locator, const FileBrowserMeans& means,
                                         const SmbOpenerTimes& times)
{
    return std::make_unique<DesktopSmbOpener>(
        Means{.locator = locator, .browser = means, .times = times});
}

} // namespace quillbox
