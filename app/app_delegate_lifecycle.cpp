#include "app/app_delegate.h"
#include "platform/values/standard_error.h"

#include <QGuiApplication>
#include <QScreen>
#include <chrono>
#include <string>
#include <utility>

namespace quillbox {

namespace {

constexpr const char* kManagementServiceType = "_quillbox-admin._tcp";

/// Any copy that is not stuck answers in less time.
constexpr std::chrono::milliseconds kPresenceLimit{1000};

/// A shutdown takes less time.
constexpr std::chrono::milliseconds kEndLimit{2000};

/// One entry per device, compared to decide whether a discovery result requires a restart.
std::vector<std::string> signatureOf(const std::vector<DiscoveredDevice>& devices)
{
    std::vector<std::string> signature;
    signature.reserve(devices.size());
    for (const DiscoveredDevice& device : devices)
        signature.push_back(device.name + '|' + device.endpoint.description());
    return signature;
}

/// Whether `other` was launched before `self`. An unknown date of `other` counts as the earliest,
/// one of `self` as the latest, so that in doubt the copy that calls this yields.
bool isOlder(const Launch& other, const Launch& self)
{
    const auto otherDate = other.date.value_or(std::chrono::nanoseconds::min());
    const auto ownDate = self.date.value_or(std::chrono::nanoseconds::max());
    return otherDate < ownDate
           || (otherDate == ownDate && other.processIdentifier < self.processIdentifier);
}

} // namespace

AppDelegate::AppDelegate(AppEnvironment appEnvironment)
    : managementDiscovery(std::make_shared<PhoneDiscovery>(
        appEnvironment.dispatch, appEnvironment.network, appEnvironment.log,
        appEnvironment.bundleIdentifier.value_or(""), kManagementServiceType)),
      discovery(std::make_shared<PhoneDiscovery>(
          appEnvironment.dispatch, appEnvironment.network, appEnvironment.log,
          appEnvironment.bundleIdentifier.value_or(""), kFileServiceType)),
      statusLabel(QStringLiteral("Enter the local IP address shown in Quillbox.")),
      showInFinder(QStringLiteral("Show Quillbox in Finder")),
      automaticDiscovery(QStringLiteral("Find Quillbox automatically")),
      advancedButton(QStringLiteral("Advanced ▸")),
      environment(std::move(appEnvironment))
{
    readFields();
}

AppDelegate::~AppDelegate()
{
    // It is destroyed after the members that handling its events uses.
    if (window)
        window->removeEventFilter(this);
}

void AppDelegate::applicationDidFinishLaunching()
{
    if (activateExistingInstance()) {
        if (isExistingInstanceWindowless && environment.hasDisplay)
            sayThatThereIsNoWindow();
        else
            environment.terminate();
        return;
    }
    keep(environment.startOptions, environment.userDefaults, "from now on");
    if (!environment.hasDisplay)
        printToStandardError("quillbox-helper: no display; running without a window");
    forceLightAppearance();
    QGuiApplication::setQuitOnLastWindowClosed(applicationShouldTerminateAfterLastWindowClosed());
    buildWindow();
    buildStatusItem();
    updateTaskbar();

    discovery->resultChanged = weakly(&AppDelegate::discoveredDevicesChanged);
    discovery->start();
    managementDiscovery->resultChanged = weakly(&AppDelegate::managementDevicesChanged);
    managementDiscovery->start();

    centreWindow();
    if (!environment.startsHidden)
        bringWindowForward();
    environment.networkView.setChangedHandler(weakly(&AppDelegate::networkViewChanged));
    readCheckBoxes();
    if (showInFinder.isChecked())
        restartRelay();
    // Last, because handling a request requires that the settings have been read. A visible window
    // comes forward too, because other windows may cover it.
    environment.runningApplications.serve(
        [self = QPointer(this)](const std::string& permission) {
            if (self)
                self->applicationShouldHandleReopen(false, permission);
        },
        weakly(&AppDelegate::messageArrived));
}

void AppDelegate::applicationWillTerminate()
{
    discovery->stop();
    managementDiscovery->stop();
    if (managementResolver)
        managementResolver->cancel();
    stopRelays();
}

bool AppDelegate::applicationShouldHandleReopen(bool hasVisibleWindows,
                                                const std::string& permission)
{
    if (!hasVisibleWindows)
        bringWindowForward(permission);
    return true;
}

bool AppDelegate::windowShouldClose(QWidget& sender)
{
    sender.hide();
    return false;
}

void AppDelegate::showHelper(const std::string& permission)
{
    bringWindowForward(permission);
}

void AppDelegate::quit()
{
    environment.terminate();
}

bool AppDelegate::activateExistingInstance()
{
    if (!environment.bundleIdentifier)
        return false;
    const Launch self = environment.runningApplications.launch();
    for (const auto& other : environment.runningApplications.others()) {
        if (other->isTerminated() || !isOlder(other->launch(), self))
            continue;
        // A copy that starts hidden, for example at login, does not show another copy's window
        // either. It sends a message only to wait for an answer.
        if (environment.startsHidden)
            other->ask({}, kPresenceLimit);
        else
            isExistingInstanceWindowless = !other->activate();
        if (!other->isTerminated()) {
            std::string text = "quillbox-helper: another instance is already running";
            if (isExistingInstanceWindowless)
                text += ", without a display";
            if (environment.startOptions != StartOptions())
                text += "; its settings stay as they are: to start with others, run "
                        "'quillbox-helper quit' first";
            printToStandardError(text);
            return true;
        }
        // It was about to exit. Until it has, its relays may still have the names of the phones.
        other->waitForEnd(kEndLimit);
    }
    return false;
}

/// Tells the user why the launch shows nothing, and then terminates.
void AppDelegate::sayThatThereIsNoWindow()
{
    // While the notice is open, another launch must not find this copy in place of the running one.
    environment.runningApplications.withdraw();
    environment.notice.show("Quillbox Helper is running without a window",
                            "It was started where there was no display. To get a window, run "
                            "\"quillbox-helper quit\" and start it again.",
                            environment.terminate);
}

void AppDelegate::discoveredDevicesChanged(const std::vector<DiscoveredDevice>& devices)
{
    const bool isDifferent = signatureOf(discoveredDevices) != signatureOf(devices);
    discoveredDevices = devices;
    updateDeviceList();
    if (isDifferent && showInFinder.isChecked() && automaticDiscovery.isChecked())
        restartRelay();
}

void AppDelegate::managementDevicesChanged(const std::vector<DiscoveredDevice>& devices)
{
    managementDevices = devices;
    updateDeviceList();
}

void AppDelegate::networkViewChanged()
{
    showFinderHint();
    if (const std::string hint = finderHint(); !hint.empty())
        printToStandardError("quillbox-helper: " + hint);
}

void AppDelegate::centreWindow()
{
    QRect frame = window->frameGeometry();
    frame.moveCenter(window->screen()->availableGeometry().center());
    window->move(frame.topLeft());
}

void AppDelegate::bringWindowForward(const std::string& permission)
{
    environment.windowPresence.bringForward(window->winId(), permission, [this] {
        window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
        window->show();
        window->raise();
        window->activateWindow();
    });
}

/// The taskbar lists the window only while there is no status item to open it from.
void AppDelegate::updateTaskbar()
{
    environment.windowPresence.setListed(window->winId(), !statusItem->isShown());
}

} // namespace quillbox
