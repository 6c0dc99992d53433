#pragma once

#include "app/app_environment.h"
#include "app/control_message.h"
#include "discovery/discovered_device.h"
#include "discovery/management_resolver.h"
#include "discovery/phone_discovery.h"
#include "platform/text.h"
#include "relay/finder_relay.h"
#include "ui/glyph_label.h"
#include "ui/paragraph_label.h"
#include "ui/status_bar_item.h"

#include <QAction>
#include <QCheckBox>
#include <QColor>
#include <QLabel>
#include <QLineEdit>
#include <QObject>
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

namespace quillbox {

class FrameSizer;

/// What the user is told: whether phones are visible in the file browser, and a text.
struct StatusReport {
    bool ready = false;
    std::string text;
};

/// The controller: owns the discovery objects, the relays, the window and the status item, and
/// decides which relays run. Everything here belongs to the main thread; callbacks from elsewhere
/// arrive there and find the controller gone or whole. Its operations are spread over sources in
/// `app/` (what it does) and `ui/` (what it shows).
class AppDelegate final : public QObject {
public:
    /// The Finder name of the one relay of manual mode.
    static constexpr const char* kManualFinderName = "Quillbox";

    /// What brings web management about, in one line.
    static constexpr const char* kHowToEnableManagement =
        "Enable web management on your phone: in Quillbox, open Users and turn on Enable web "
        "management for your SMB account";

    /// Told once: nothing when the page was opened, or why not.
    using ManagementTold = std::function<void(const std::optional<std::string>& refusal)>;

    /// Makes the controls and fills the fields from the stored settings; nothing runs.
    explicit AppDelegate(AppEnvironment appEnvironment);
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;
    ~AppDelegate() override;

    // The life of the application.
    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    bool applicationShouldTerminateAfterLastWindowClosed() const { return false; }
    bool applicationShouldHandleReopen(bool hasVisibleWindows);
    bool windowShouldClose(QWidget& sender);
    void showHelper();
    void quit();

    /// True when an older copy runs; it has been brought forward then.
    bool activateExistingInstance();

    /// Another copy was started and yields to this one. `permission` is what the desktop gave it
    /// to come forward; may be empty.
    void activatedByAnotherCopy(const std::string& permission);

    /// A process of this user's asks for something; it is told what came of it. What it asks for is
    /// done as from the menu, and refused with the words of the status line.
    void messageArrived(const CopyMessage& message, const RunningApplications::Answer& answer);

    /// What goes on at this moment.
    HelperStatus helperStatus() const;

    // The settings.
    void saveFields(const std::string& host, std::uint16_t port);
    void toggleFinderVisibility();
    void toggleAutomaticDiscovery();
    void restartFromMenu();
    void controlTextDidEndEditing();

    // The relays.
    void restartRelay();
    void syncAutomaticRelays();
    void stopRelays();

    /// Opens the phone's share in the file browser, or tells why not.
    void openInFinder();

    // Web management: the page of the one phone that has it, of the phone that the user chooses
    // from a menu, or of the phone whose button was pressed; without any, how to enable it.
    void openManagement();
    void openManagementMenu(const QAction& item);
    void openNamedManagement(const QPushButton& button);
    void resolveManagement(const Endpoint& endpoint, ManagementTold told = {});

    /// The property of a "Manage" button, and the data of a menu item likewise, that holds the name
    /// of its phone: a QByteArray of UTF-8, verbatim.
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

    // Members are destroyed from the last to the first: the controls go before the window that they
    // stand in, which then finds no child of its own making among them.
    const std::shared_ptr<PhoneDiscovery> managementDiscovery;
    std::vector<DiscoveredDevice> managementDevices;
    std::shared_ptr<ManagementResolver> managementResolver;
    std::unique_ptr<QWidget> window; ///< none before `buildWindow`
    const std::shared_ptr<PhoneDiscovery> discovery;
    std::map<std::string, std::shared_ptr<FinderRelay>, CanonicalLess> relays; ///< by Finder name
    std::map<std::string, std::string, CanonicalLess> relayTargets; ///< what each was started with
    QLineEdit hostField;
    QLineEdit portField;
    QLineEdit shareField;
    QLineEdit userField;
    GlyphLabel statusDot;
    ParagraphLabel statusLabel;
    QWidget deviceListStack;
    QCheckBox showInFinder;
    QCheckBox automaticDiscovery;
    QPushButton advancedButton;
    QWidget* advancedForm = nullptr; ///< the window's; none before `buildWindow`
    bool advancedVisible = false;
    FrameSizer* frameSizer = nullptr;          ///< the window's; none before `buildWindow`
    std::unique_ptr<StatusBarItem> statusItem; ///< none before `buildStatusItem`
    QAction* menuStatusItem = nullptr;         ///< the status item's
    std::vector<DiscoveredDevice> discoveredDevices;
    /// The Finder names whose relay reported ready, in automatic mode.
    std::set<std::string, CanonicalLess> readyFinderNames;
    /// What `setStatus` was told last, verbatim.
    StatusReport lastReport{.ready = false,
                            .text = "Enter the local IP address shown in Quillbox."};

private:
    bool eventFilter(QObject* watched, QEvent* event) override;

    void discoveredDevicesChanged(const std::vector<DiscoveredDevice>& devices);
    void managementDevicesChanged(const std::vector<DiscoveredDevice>& devices);
    void readFields();
    void readCheckBoxes();
    void forceLightAppearance();
    static void applyLightPalette();
    QWidget* buildCard();
    QWidget* buildStatusBox();
    QWidget* buildManagementButton();
    void buildAdvancedButton();
    QLayout* buildFields();
    QLayout* buildFormButtons();
    void buildKeyboard();
    bool handleKey(const QEvent& event);
    void announce(const QString& status);
    void addHeading();
    QWidget* addDeviceRow(const DiscoveredDevice& device, const DiscoveredDevice* management);
    void centreWindow();
    bool isWindowVisible() const;
    void bringWindowForward();
    void updateTaskbar();

    void startManualRelay(const std::string& host, std::uint16_t port);
    void startAutomaticRelay(const DiscoveredDevice& device);
    void retireChangedRelays();
    void automaticRelayChanged(const std::string& finderName, const StatusReport& report);
    bool isEveryDeviceReady() const;
    StatusReport visibleStatus() const;
    std::shared_ptr<FinderRelay> makeRelay();

    std::optional<StatusReport> openShare(const std::string* phone);
    StatusReport refuseToOpen(const StatusReport& reason);
    StatusReport refuseLoudly(const StatusReport& reason);

    ControlAnswer openOnRequest(const std::optional<std::string>& phone);
    void manageOnRequest(const std::optional<std::string>& phone,
                         const RunningApplications::Answer& answer);
    ControlAnswer restartOnRequest();

    void openManagementOf(const QVariant& name);
    void managementResolved(const std::optional<std::string>& url);
    void explainWebManagement();
    void popUpManagementMenu();

    ManagementTold managementTold; ///< of the resolver in flight; may be empty
    const AppEnvironment environment;
};

} // namespace quillbox
