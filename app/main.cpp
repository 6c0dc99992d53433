#include "app/app_delegate.h"
#include "control/options.h"
#include "control/remote_control.h"
#include "control/start_settings.h"
#include "discovery/phone_discovery.h"
#include "doctor/doctor.h"
#include "platform/desktop/instances/running_instances.h"
#include "platform/desktop/opening/desktop_workspace.h"
#include "platform/desktop/opening/notice.h"
#include "platform/desktop/opening/smb_opener.h"
#include "platform/desktop/presence/activation_tokens.h"
#include "platform/desktop/presence/display.h"
#include "platform/desktop/presence/startup_notification.h"
#include "platform/desktop/presence/status_host_watch.h"
#include "platform/desktop/presence/window_presence.h"
#include "platform/desktop/process/main_queue.h"
#include "platform/desktop/process/process.h"
#include "platform/desktop/process/termination_signals.h"
#include "platform/desktop/settings/autostart_entry.h"
#include "platform/desktop/settings/background_portal.h"
#include "platform/desktop/settings/file_user_defaults.h"
#include "platform/desktop/settings/user_folders.h"
#include "platform/linux/examination.h"
#include "platform/linux/linux_platform.h"
#include "platform/linux/system_configuration.h"
#include "platform/standard_error_log.h"
#include "platform/values/standard_error.h"

#include <QApplication>
#include <QDBusConnection>
#include <QSessionManager>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <span>
#include <string>
#include <variant>

namespace quillbox {

namespace {

constexpr const char* kBundleIdentifier = QUILLBOX_BUNDLE_IDENTIFIER;

/// In the user's configuration folder.
constexpr const char* kSettings = QUILLBOX_BUNDLE_IDENTIFIER "/settings.json";
constexpr const char* kAutostartEntry = "autostart/" QUILLBOX_BUNDLE_IDENTIFIER ".desktop";

/// Longer than a regular shutdown takes, shorter than session managers wait.
constexpr std::chrono::milliseconds kLimitOfEnd{950};

/// Less than the doctor's other checks take.
constexpr std::chrono::milliseconds kLimitOfDoctorsQuestion{2000};

int print(const std::string& text)
{
    const bool isPrinted = std::fputs(text.c_str(), stdout) != EOF && std::fflush(stdout) != EOF;
    return isPrinted ? exit_status::kDone : exit_status::kFailed;
}

/// Without a display Qt warns about each window operation that the platform plugin lacks.
void printUnlessAboutWindows(QtMsgType type, const QMessageLogContext& context,
                             const QString& message)
{
    if (!message.startsWith(QStringLiteral("This plugin does not support")))
        printToStandardError(qFormatLogMessage(type, context, message).toStdString());
}

/// Selects Qt's platform plugin: Qt aborts if the default one finds no display. Returns whether
/// there is a display.
bool choosePlatform()
{
    const Display display = probeDisplay();
    if (display == Display::Wayland)
        qputenv("QT_QPA_PLATFORM", "wayland");
    if (display != Display::None)
        return true;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qInstallMessageHandler(printUnlessAboutWindows);
    return false;
}

/// Qt's platform theme for GNOME loads GTK, whose accessibility bridge registers for the whole
/// process but knows nothing about Qt's windows, so a screen reader would get no answers. GTK reads
/// this variable while the QApplication is constructed.
void turnGtkBridgeOff()
{
    constexpr const char* kNoGtkBridge = "NO_AT_BRIDGE";
    if (!qEnvironmentVariableIsSet(kNoGtkBridge))
        qputenv(kNoGtkBridge, "1");
}

/// QApplication looks up files in the runtime folder. Where XDG_RUNTIME_DIR is not set, Qt prints a
/// warning and creates /tmp/runtime-USER. It is set to a folder that this program has checked; the
/// programs that it starts do not inherit it (see Inheritance).
void provideRuntimeFolder(const RuntimeFolders& folders)
{
    constexpr const char* kRuntimeFolderVariable = "XDG_RUNTIME_DIR";
    if (!qEnvironmentVariableIsEmpty(kRuntimeFolderVariable))
        return;
    const std::string folder = fallbackRuntimeFolder(folders, kBundleIdentifier);
    if (!folder.empty())
        qputenv(kRuntimeFolderVariable, QByteArray::fromStdString(folder));
}

void nameApplication()
{
    // Not the display name, but this name is what Qt tells panels and screen readers.
    QCoreApplication::setApplicationName(QStringLiteral("Quillbox Helper"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QUILLBOX_VERSION));
    QGuiApplication::setApplicationDisplayName(QCoreApplication::applicationName());
    QGuiApplication::setDesktopFileName(QString::fromLatin1(kBundleIdentifier));
}

std::string shareAdvice(const PackageManager& packages)
{
    return "It takes a file manager that opens SMB shares: for KDE "
           + packages.howToInstall({Package::KioSmb}) + ", for other desktops "
           + packages.howToInstall({Package::GvfsSmb});
}

/// At logout, session managers (X Session Management Protocol) note which programs to start again
/// at the next login. Only the user decides that for this program, with --autostart: started twice,
/// it would show its window at each login.
void declineRestart(const QGuiApplication& application)
{
    const auto decline = [](QSessionManager& manager) {
        manager.setRestartHint(QSessionManager::RestartNever);
    };
    QObject::connect(&application, &QGuiApplication::saveStateRequest, &application, decline);
    QObject::connect(&application, &QGuiApplication::commitDataRequest, &application, decline);
}

/// Runs the helper until it quits. `arguments` starts with the program's name.
int run(const Options& options, char** arguments)
{
    const Inheritance inheritance = prepareProcess();
    const std::string activationToken = activationTokenOfEnvironment();
    const bool hasDisplay = choosePlatform();
    // Read before XDG_RUNTIME_DIR is changed: other instances look in the unchanged one.
    const RuntimeFolders folders = systemRuntimeFolders();
    provideRuntimeFolder(folders);
    nameApplication();
    int argumentCount = 1;
    turnGtkBridgeOff();
    const QApplication application(argumentCount, arguments);
    declineRestart(application);

    const auto log = makeStandardErrorLog(options.verbose);
    const auto mainQueue = makeMainQueue();
    auto userDefaults = makeFileUserDefaults(configurationPath(kSettings), mainQueue->queue());
    const StartSettings settings = startSettings(options.start, *userDefaults);
    LinuxPlatform platform(mainQueue->queue(), settings.dnsSd, settings.reach, *log);
    const auto sessionBus = QDBusConnection::sessionBus();
    const FileBrowserMeans browser{.bus = sessionBus, .inheritance = inheritance, .log = *log};
    const auto smbOpener = makeSmbOpener(platform, browser);
    const auto activationTokens = makeActivationTokens();
    const auto noticeWindow = makeNoticeWindow();
    const auto notification = makeNotification(sessionBus, *noticeWindow);
    const auto workspace = makeDesktopWorkspace(inheritance, *smbOpener, *activationTokens,
                                                *notification, shareAdvice(systemPackageManager()));
    const auto runningApplications = makeRunningApplications({
        .folders = folders,
        .bundleIdentifier = kBundleIdentifier,
        .activationToken = activationToken,
        .hasDisplay = hasDisplay,
    });
    const auto statusHost = makeStatusHostWatch();
    const auto windowPresence = makeWindowPresence();
    auto delegate = std::make_unique<AppDelegate>(AppEnvironment{
        .dispatch = platform,
        .network = platform,
        .log = *log,
        .userDefaults = *userDefaults,
        .workspace = *workspace,
        .runningApplications = *runningApplications,
        .statusHost = *statusHost,
        .windowPresence = *windowPresence,
        .notice = *notification,
        .networkView = platform,
        .packageManager = systemPackageManager(),
        .startSettings = settings,
        .startOptions = options.start,
        .startsHidden = options.isHidden,
        .hasDisplay = hasDisplay,
        .bundleIdentifier = kBundleIdentifier,
        .terminate =
            [&runningApplications] {
                // At once: a copy that starts from now on must not yield to this one.
                runningApplications->withdraw();
                // quit() would first close the window, which it refuses: closing only hides it.
                QCoreApplication::exit(EXIT_SUCCESS);
            },
    });
    const auto signals = makeTerminationSignals([&delegate] { delegate->quit(); });
    mainQueue->queue()->async([&delegate] { delegate->applicationDidFinishLaunching(); });
    const int status = QApplication::exec();

    endProcessWithin(kLimitOfEnd);
    runningApplications->withdraw();
    delegate->applicationWillTerminate();
    delegate = nullptr;
    userDefaults = nullptr;
    platform.shutDown();
    return status;
}

/// Stores the settings that the command line chooses, for later starts; false if that fails.
bool keepStartOptions(const StartOptions& options)
{
    if (options == StartOptions())
        return true;
    const auto mainQueue = makeMainQueue();
    const auto store = makeFileUserDefaults(configurationPath(kSettings), mainQueue->queue());
    return keep(options, *store, "from the next start on");
}

/// Turns the start at login on or off. A sandboxed program cannot write the desktop's entries, and
/// asks the desktop to do so.
int changeAutostart(const Options& options, Autostart wanted, char** arguments)
{
    prepareProcess();
    int argumentCount = 1;
    const QCoreApplication application(argumentCount, arguments);
    // First, so that no start at login is turned on that lacks them.
    if (!keepStartOptions(options.start))
        return exit_status::kFailed;
    const auto result =
        isSandboxed() ? requestAutostart(wanted, QDBusConnection::sessionBus())
                      : setAutostart(wanted, configurationPath(kAutostartEntry), ownProgram());
    if (result.outcome == AutostartResult::Outcome::Done)
        return print(printable(result.text) + '\n');
    printToStandardError("quillbox-helper: " + result.text);
    return result.outcome == AutostartResult::Outcome::Refused ? exit_status::kRefused
                                                               : exit_status::kFailed;
}

/// The instance that keeps running, which is the oldest one: newer ones are about to exit. Null if
/// there is none.
std::shared_ptr<RunningApplication> runningCopy(const std::string& activationToken,
                                                std::string& problem)
{
    const auto copies = findRunningInstances({.folders = systemRuntimeFolders(),
                                              .bundleIdentifier = kBundleIdentifier,
                                              .activationToken = activationToken},
                                             problem);
    return copies.empty() ? nullptr : copies.front();
}

/// Sends a request to the running instance. Needs no display, and registers nothing.
int controlRunningCopy(const Options& options)
{
    prepareProcess();
    std::string problem;
    const std::string activationToken = activationTokenOfEnvironment();
    const auto copy = runningCopy(activationToken, problem);
    if (!copy && !problem.empty())
        printToStandardError("quillbox-helper: " + problem);
    const auto result = control(copy.get(), *options.request,
                                options.asJson ? StatusForm::Json : StatusForm::Plain);
    // An action of the menu entry opens no window that would end the startup notification.
    endStartupWithoutWindow(activationToken);
    for (const std::string& complaint : result.complaints)
        printToStandardError(complaint);
    const int printed = print(result.output);
    return result.exitStatus == exit_status::kDone ? printed : result.exitStatus;
}

/// Runs the checks of the doctor. Registers nothing, and needs no window system.
int examine(const Options& options, char** arguments)
{
    prepareProcess();
    int argumentCount = 1;
    const QCoreApplication application(argumentCount, arguments);
    std::promise<std::string> relayHost;
    auto examining = std::async(std::launch::async, [host = relayHost.get_future().share()] {
        return examineSystem(kFileServiceType, [host] { return host.get(); });
    });
    std::string problem;
    const auto copy = askRunningCopy(runningCopy({}, problem).get(), kLimitOfDoctorsQuestion);
    relayHost.set_value(relayHostIn(copy));
    const Examination examination = examining.get();
    const auto mainQueue = makeMainQueue();
    const auto store = makeFileUserDefaults(configurationPath(kSettings), mainQueue->queue());
    const auto findings = diagnose({.system = examination.facts,
                                    .copy = copy,
                                    .next = startSettings({}, *store),
                                    .settingsProblem = store->problem()});
    const int printed = print(options.asJson ? jsonText(findings) : plainText(findings));
    const int status = hasFailure(findings) ? exit_status::kFailed : printed;
    if (examination.isSomethingStuck)
        std::_Exit(status);
    return status;
}

int perform(const Options& options, char** arguments)
{
    switch (options.action) {
    case Options::Action::ShowHelp:
        if (options.isDoctor)
            return print(helpTextOfDoctor());
        return print(options.request ? helpTextOf(options.request->command) : helpText());
    case Options::Action::ShowVersion:
        return print(std::string("quillbox-helper ") + QUILLBOX_VERSION + '\n');
    case Options::Action::TurnAutostartOn:
        return changeAutostart(options, Autostart::On, arguments);
    case Options::Action::TurnAutostartOff:
        return changeAutostart(options, Autostart::Off, arguments);
    case Options::Action::Control:
        return controlRunningCopy(options);
    case Options::Action::Diagnose:
        return examine(options, arguments);
    case Options::Action::Run:
        break;
    }
    return run(options, arguments);
}

int refuse(const std::string& mistake)
{
    printToStandardError("quillbox-helper: " + mistake);
    printToStandardError("Try 'quillbox-helper --help'.");
    return exit_status::kUsage;
}

} // namespace

} // namespace quillbox

int main(int argumentCount, char** arguments)
{
    const std::span<const char* const> all(arguments, static_cast<std::size_t>(argumentCount));
    const auto parsed = quillbox::parseOptions(all.empty() ? all : all.subspan(1));
    if (const auto* options = std::get_if<quillbox::Options>(&parsed))
        return quillbox::perform(*options, arguments);
    return quillbox::refuse(*std::get_if<std::string>(&parsed));
}
