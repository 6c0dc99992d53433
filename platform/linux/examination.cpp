#include "platform/linux/examination.h"

#include "platform/diagnosis/desktop_probes.h"
#include "platform/diagnosis/network_probes.h"
#include "platform/diagnosis/timely.h"
#include "platform/linux/phone_survey.h"
#include "platform/linux/system_configuration.h"

#include <chrono>
#include <utility>
#include <vector>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using namespace diagnosis;

constexpr auto kMulticastTime = 2000ms;
constexpr auto kBrowseTime = 3000ms;
constexpr auto kConnectTime = 1000ms;
constexpr auto kAnswerLimit = 1000ms; ///< for one query to another program

/// Time limit of the whole examination; the phones take longest.
constexpr auto kLimit = 5500ms;

/// Multicast is the only interface fact that takes time to find out.
std::vector<InterfaceFacts> probeInterfaces(const std::string& type)
{
    Survey survey = surveyInterfaces();
    probeMulticast(survey, type, kMulticastTime);
    return survey.interfaces;
}

bool isResolvedAsked(const NameService& service)
{
    return service.localNames() == NameService::LocalNames::Resolved;
}

} // namespace

NameExamination examineNames(const NameService& service, bool isResolverRunning,
                             const std::string& name, std::function<bool(const std::string&)> find,
                             std::chrono::steady_clock::time_point end)
{
    NameExamination result{.facts = {.service = service}};
    if (!service.isLocalOnly() && !isResolvedAsked(service))
        return result;
    if (!isResolverRunning) {
        result.facts.isResolved = Seen::No;
    } else if (!name.empty()) {
        result.facts.askedName = name;
        Timely<Seen> found(
            [name, find = std::move(find)] { return find(name) ? Seen::Yes : Seen::No; });
        result.facts.isResolved = found.take(end, Seen::Unknown);
        result.isStuck = found.isLate();
    }
    return result;
}

Examination examineSystem(const std::string& phoneType,
                          const std::function<std::string()>& relayHost)
{
    const auto end = std::chrono::steady_clock::now() + kLimit;
    Timely<std::vector<InterfaceFacts>> interfaces(
        [phoneType] { return probeInterfaces(phoneType); });
    Timely<PhonesFacts> phones(
        [phoneType] { return surveyPhones(phoneType, kBrowseTime, kConnectTime); });
    Timely<AvahiFacts> avahi([] { return probeAvahi(kAnswerLimit); });
    Timely<Seen> firewalld([] { return probeFirewalld(kAnswerLimit); });
    Timely<Seen> panel([] { return probeStatusPanel(kAnswerLimit); });
    Timely<Seen> tray([] { return probeTray(); });

    Examination examination;
    SystemFacts& facts = examination.facts;
    facts.fileBrowser = probeFileBrowser(systemDataFolders(), systemLibraryFolders());
    facts.packageManager = systemPackageManager();
    facts.avahi = avahi.take(end - kAnswerLimit, {});
    const NameService service = systemNameService();
    auto names = examineNames(service, isResolverRunning(service),
                              isResolvedAsked(service) ? relayHost() : facts.avahi.hostName,
                              isNameOfThisComputer, end);
    facts.names = std::move(names.facts);
    facts.interfaces = interfaces.take(end, {});
    facts.phones = phones.take(end, {});
    facts.firewall = {.ufw = probeUfw(), .firewalld = firewalld.take(end, Seen::Unknown)};
    facts.statusHost = {.hasDesktop = isDesktopNamed(),
                        .hasPanel = panel.take(end, Seen::Unknown),
                        .hasTray = tray.take(end, Seen::Unknown)};
    examination.isSomethingStuck = names.isStuck || interfaces.isLate() || phones.isLate()
                                   || avahi.isLate() || firewalld.isLate() || panel.isLate()
                                   || tray.isLate();
    return examination;
}

} // namespace quillbox
