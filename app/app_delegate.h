#pragma once

#include "control/control_message.h"
#include "control/start_settings.h"
#include "discovery/discovered_device.h"
#include "discovery/management_resolver.h"
#include "discovery/phone_discovery.h"
#include "platform/dispatch_queue.h"
#include "platform/dns_sd.h"
#include "platform/log.h"
#include "platform/network.h"
#include "platform/network_view.h"
#include "platform/notice.h"
#include "platform/running_applications.h"
#include "platform/status_host.h"
#include "platform/user_defaults.h"
#include "platform/values/package_manager.h"
#include "platform/values/text.h"
#include "platform/window_presence.h"
#include "platform/workspace.h"
#include "relay/finder_relay.h"
#include "ui/dot_label.h"
#include "ui/edit_field.h"
#include "ui/paragraph_label.h"
#include "ui/status_bar_item.h"

#include <QAction>
#include <QCheckBox>
#include <QColor>
#include <QLabel>
#include <QObject>
#include <QPointer>
#include <QPushButton>
#include <QVariant>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

class QLayout;
class QMenu;

namespace quillbox {

class ContentArea;
class DeviceRow;
class FrameSizer;

/// What the controller needs from its environment. The referenced objects must outlive it.
struct AppEnvironment {
    Dispatch& dispatch;
    Network& network;
    Log& log;
    UserDefaults& userDefaults;
    Workspace& workspace;
    RunningApplications& runningApplications;
    StatusHost& statusHost;
    WindowPresence& windowPresence;
    Notice& notice;
    NetworkView& networkView;
    PackageManager packageManager;
    /// What holds for this run.
    StartSettings startSettings = {};
    /// What the command line says of it: stored, for later starts, once this copy stays.
    StartOptions startOptions = {};
    /// Whether the window stays hidden until the user asks for it.
    bool startsHidden = false;
    /// Whether there is a display to show the window on.
    bool hasDisplay = true;
    /// nullopt: any number of copies may run.
    std::optional<std::string> bundleIdentifier;
    /// Asks the event loop to end, and returns before it does.
    std::function<void()> terminate;
};

/// The status shown to the user: whether phones are visible in the file browser, and a text.
struct StatusReport {
    bool ready = false;
    std::string text;
};

/// The host name of a relay in the network view; empty while it is not advertised.
struct RelayHost {
    std::string name = {};
    std::unique_ptr<DnsSd::Subscription> updates = {};
};

/// A request from another process, such as a panel, to open web management.
struct ManagementRequest {
    std::string permission = {};   ///< the process's activation token; may be empty
    Workspace::Opened opened = {}; ///< may be empty
};

/// The controller: owns the discovery objects, the relays, the window and the status item, and
/// decides which relays run. Main thread only: callbacks are delivered there, and do nothing once
/// the controller has been destroyed.
class AppDelegate final : public QObject {
public:
    /// The Finder name of the only relay in manual mode.
    static constexpr const char* kManualFinderName = "Quillbox";

    /// How to enable web management, in one line.
    static constexpr const char* kHowToEnableManagement =
        "Enable web management on your phone: in Quillbox, open Users and turn on Enable web "
        "management for your SMB account";

    /// Creates the controls and fills the fields from the stored settings; starts nothing.
    explicit AppDelegate(AppEnvironment appEnvironment);
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;
    ~AppDelegate() override;

    // Application life cycle.
    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    bool applicationShouldTerminateAfterLastWindowClosed() const { return false; }
    bool windowShouldClose(QWidget& sender);
    void quit();

    // Bring the window forward. `permission` is an activation token (see
    // `WindowPresence::bringForward`); may be empty.
    bool applicationShouldHandleReopen(bool hasVisibleWindows, const std::string& permission = {});
    void showHelper(const std::string& permission = {});

    /// True if an older copy is running and is not about to exit. Brings that copy's window to the
    /// front, unless this copy starts hidden. Waits for a copy that is about to exit.
    bool activateExistingInstance();

    /// Executes a request from another process of the same user and answers it. Requests have the
    /// effect of the menu items, and are refused with the text of the status line.
    void messageArrived(const CopyMessage& message, const RunningApplications::Answer& answer);

    /// The current state.
    HelperStatus helperStatus() const;

    /// Why file managers list no phones although relays are advertised, and what to do; empty if
    /// they can list them.
    std::string finderHint() const;

    // Settings.
    void saveFields(const std::string& host, std::uint16_t port);
    void toggleFinderVisibility();
    void toggleAutomaticDiscovery();
    void restartFromMenu();
    void controlTextDidEndEditing();

    // Relays.
    void restartRelay();
    void syncAutomaticRelays();
    void stopRelays();

    /// Opens the phone's share in the file browser, or reports why it cannot. Here and below,
    /// `permission` is an activation token (see `Workspace::open`).
    void openInFinder(const std::string& permission = {});

    // Web management: opens the page of the only phone that has it, of the phone that the user
    // chooses from a menu, or of the phone whose button was clicked; without such a phone, explains
    // how to enable it.
    void openManagement(const std::string& permission = {});
    void openManagementMenu(const QAction& item);
    void openNamedManagement(const QPushButton& button);
    void resolveManagement(const Endpoint& endpoint, ManagementRequest request = {});

    /// The property of a "Manage" button that holds the name of its phone: a QByteArray of UTF-8,
    /// verbatim. The data of a menu item has the same form.
    static constexpr const char* kManagementIdentifier = "identifier";

    // The window and the status item.
    static QLabel* wrappingLabel(const QString& text, int size, const QColor& color);
    void buildWindow();
    QWidget* buildAdvancedForm();
    void toggleAdvanced();
    void updateWindowHeight();
    void updateDeviceList();
    void setStatus(const StatusReport& report);
    void buildStatusItem();

    // Members are destroyed in reverse order: the controls before the window that contains them,
    // because ~QWidget would delete them as its children.
    const std::shared_ptr<PhoneDiscovery> managementDiscovery;
    std::vector<DiscoveredDevice> managementDevices;
    std::shared_ptr<ManagementResolver> managementResolver;
    std::unique_ptr<QWidget> window; ///< null before `buildWindow`
    const std::shared_ptr<PhoneDiscovery> discovery;
    std::map<std::string, std::shared_ptr<FinderRelay>, CanonicalLess> relays; ///< by Finder name
    std::map<std::string, std::string, CanonicalLess> relayTargets; ///< endpoint descriptions
    std::map<std::string, RelayHost, CanonicalLess> relayHosts;
    EditField hostField;
    EditField portField;
    EditField shareField;
    EditField userField;
    DotLabel statusDot;
    ParagraphLabel statusLabel;
    QWidget deviceListStack;
    QCheckBox showInFinder;
    QCheckBox automaticDiscovery;
    QPushButton advancedButton;
    QPushButton* managementButton = nullptr; ///< owned by the window; null before `buildWindow`
    QWidget* advancedForm = nullptr;         ///< owned by the window; null before `buildWindow`
    bool advancedVisible = false;
    ContentArea* contentArea = nullptr;        ///< owned by the window; null before `buildWindow`
    FrameSizer* frameSizer = nullptr;          ///< the same
    std::unique_ptr<StatusBarItem> statusItem; ///< null before `buildStatusItem`
    QAction* menuStatusItem = nullptr;         ///< owned by the status item
    std::vector<DiscoveredDevice> discoveredDevices;
    /// The Finder names of the relays that are ready, in automatic mode.
    std::set<std::string, CanonicalLess> readyFinderNames;
    /// The last argument of `setStatus`, verbatim.
    StatusReport lastReport{.ready = false,
                            .text = "Enter the local IP address shown in Quillbox."};

private:
    /// Calls the method, unless the controller has been destroyed.
    template <typename... Arguments> auto weakly(void (AppDelegate::*method)(Arguments...))
    {
        return [self = QPointer(this), method](Arguments... arguments) {
            if (self)
                (self->*method)(arguments...);
        };
    }

    bool eventFilter(QObject* watched, QEvent* event) override;

    void discoveredDevicesChanged(const std::vector<DiscoveredDevice>& devices);
    void managementDevicesChanged(const std::vector<DiscoveredDevice>& devices);
    void networkViewChanged();
    void readFields();
    void readCheckBoxes();
    void forceLightAppearance();
    static void applyLightPalette();
    void buildContent();
    QWidget* buildCard();
    QWidget* buildStatusBox();
    QWidget* buildManagementButton();
    void buildAdvancedButton();
    void tellFold();
    QLayout* buildFields();
    QLayout* buildFormButtons();
    void buildKeyboard();
    bool handleKey(const QEvent& event);
    void announce(const QString& status);
    void statusItemClicked();
    void showFromPanel();
    void showFinderHint();
    void addHeading();
    DeviceRow* addDeviceRow(const DiscoveredDevice& device, const DiscoveredDevice* management);
    void sayThatThereIsNoWindow();
    void centreWindow();
    void bringWindowForward(const std::string& permission = {});
    void updateTaskbar();

    void startRelay(const std::string& finderName, const Endpoint& endpoint,
                    const std::string& target, std::function<void(const StatusReport&)> changed);
    void retireChangedRelays();
    void automaticRelayChanged(const std::string& finderName, const StatusReport& report);
    void relayHostChanged(const std::string& finderName,
                          const std::optional<DnsSd::OwnService>& own);
    bool isEveryDeviceReady() const;
    StatusReport visibleStatus() const;

    std::optional<StatusReport> openShare(const std::string* phone, const std::string& permission,
                                          const Workspace::Opened& opened);

    void openOnRequest(const std::optional<std::string>& phone, const std::string& permission,
                       const RunningApplications::Answer& answer);
    void manageOnRequest(const std::optional<std::string>& phone, const std::string& permission,
                         const RunningApplications::Answer& answer);
    ControlAnswer restartOnRequest();

    void openManagementOf(const QVariant& name);
    void managementResolved(const std::optional<std::string>& url);
    void explainWebManagement(const std::string& permission);
    void popUpManagementMenu(const std::string& permission);
    void fillManagementMenu(QMenu& menu);

    bool isExistingInstanceWindowless = false; ///< known after `activateExistingInstance`
    ManagementRequest managementRequest;       ///< for the resolver in progress
    const AppEnvironment environment;
};

} // namespace quillbox
