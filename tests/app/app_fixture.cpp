#include "tests/app/app_fixture.h"

#include "ui/look/brand.h"

#include <QPalette>
#include <stdexcept>

namespace quillbox {

void AppFixture::create(const std::optional<std::string>& bundleIdentifier)
{
    earlierBrowses = network.dnsSd().browses().size();
    delegate = std::make_unique<AppDelegate>(AppEnvironment{
        .dispatch = dispatch,
        .network = network,
        .log = story,
        .userDefaults = defaults,
        .workspace = workspace,
        .runningApplications = applications,
        .statusHost = statusHost,
        .windowPresence = windowPresence,
        .notice = notice,
        .networkView = networkView,
        .packageManager = PackageManager("ID=debian"),
        .startSettings = startSettings,
        .startOptions = startOptions,
        .startsHidden = startsHidden,
        .hasDisplay = hasDisplay,
        .bundleIdentifier = bundleIdentifier,
        .terminate = [this] { ++terminations; },
    });
}

void AppFixture::launch()
{
    if (!delegate)
        create();
    delegate->applicationDidFinishLaunching();
    dispatch.runAll();
}

void AppFixture::launchManually()
{
    defaults.values = {{"host", "192.0.2.7"}, {"port", "4445"}, {"automaticDiscovery", false}};
    launch();
}

Endpoint AppFixture::phoneNamed(const std::string& name, const std::string& domain)
{
    return ServiceEndpoint{.name = name, .type = "_quillbox._tcp", .domain = domain};
}

void AppFixture::findPhones(const std::vector<Endpoint>& phones)
{
    phoneBrowse().tell(readyWith(phones));
    dispatch.runAll();
}

void AppFixture::findManagement(const std::vector<Endpoint>& phones)
{
    managementBrowse().tell(readyWith(phones));
    dispatch.runAll();
}

std::vector<std::shared_ptr<FakeListener>> AppFixture::runningListeners() const
{
    std::vector<std::shared_ptr<FakeListener>> running;
    for (const auto& listener : network.listeners) {
        if (listener->isStarted && listener->cancels == 0)
            running.push_back(listener);
    }
    return running;
}

std::vector<std::string> AppFixture::runningNames() const
{
    std::vector<std::string> names;
    for (const auto& listener : runningListeners())
        names.push_back(listener->service.value().name);
    return names;
}

FakeListener& AppFixture::listenerNamed(const std::string& finderName) const
{
    std::shared_ptr<FakeListener> found;
    for (const auto& listener : runningListeners()) {
        if (listener->service.value().name == finderName) {
            EXPECT_FALSE(found) << "two relays are named " << finderName;
            found = listener;
        }
    }
    if (!found)
        throw std::runtime_error("no relay is named " + finderName);
    return *found;
}

Endpoint AppFixture::targetOf(FakeListener& listener)
{
    listener.accept(std::make_shared<FakeConnection>());
    dispatch.runAll();
    return network.connections.back()->endpoint.value();
}

void AppFixture::report(FakeListener& listener, Listener::State state, std::error_code error)
{
    listener.report(state, error);
    dispatch.runAll();
}

bool AppFixture::isStatusReady() const
{
    return delegate->statusDot.palette().color(QPalette::WindowText) == Brand::green;
}

std::optional<std::string> AppFixture::storedText(const std::string& key) const
{
    const auto entry = defaults.values.find(key);
    if (entry == defaults.values.end())
        return std::nullopt;
    return std::get<std::string>(entry->second);
}

std::optional<bool> AppFixture::storedBool(const std::string& key) const
{
    const auto entry = defaults.values.find(key);
    if (entry == defaults.values.end())
        return std::nullopt;
    return std::get<bool>(entry->second);
}

} // namespace quillbox
