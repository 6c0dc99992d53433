#include "app/app_delegate.h"
#include "platform/desktop/instances/running_instances.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_network.h"
#include "tests/fakes/fake_network_view.h"
#include "tests/fakes/fake_status_host.h"
#include "tests/fakes/fake_user_defaults.h"
#include "tests/fakes/fake_window_presence.h"
#include "tests/fakes/recording_log.h"
#include "tests/fakes/recording_notice.h"
#include "tests/fakes/recording_workspace.h"

#include <QApplication>
#include <QEvent>
#include <QSocketNotifier>
#include <cstdio>
#include <iostream>
#include <string>

#include <unistd.h>

namespace {

void tell(const char* what)
{
    std::puts(what);
    std::fflush(stdout);
}

/// Prints when a window that was hidden is shown.
class Witness final : public QObject {
    bool eventFilter(QObject* /*window*/, QEvent* event) override
    {
        if (event->type() == QEvent::Show)
            tell("comes forward");
        return false;
    }
};

} // namespace

/// One copy of the helper. Waits for a line on standard input, launches, and prints whether it
/// stays or yields, and each time that another copy brings it forward. A copy that stays exits when
/// its standard input is closed.
int main(int argumentCount, char** arguments)
{
    using namespace quillbox;

    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argumentCount, arguments);
    tell("waits");
    std::string line;
    std::getline(std::cin, line);

    FakeDispatch dispatch;
    FakeNetwork network;
    RecordingLog log;
    FakeUserDefaults defaults;
    RecordingWorkspace workspace;
    const auto copies = makeRunningApplications({
        .folders = {.xdg = arguments[1], .user = {}, .shared = arguments[1]},
        .bundleIdentifier = "org.example.Racing",
        .activationToken = {},
    });
    bool yields = false;
    Witness witness;
    FakeStatusHost statusHost;
    FakeWindowPresence windowPresence;
    RecordingNotice notice;
    FakeNetworkView networkView;
    AppDelegate delegate(AppEnvironment{
        .dispatch = dispatch,
        .network = network,
        .log = log,
        .userDefaults = defaults,
        .workspace = workspace,
        .runningApplications = *copies,
        .statusHost = statusHost,
        .windowPresence = windowPresence,
        .notice = notice,
        .networkView = networkView,
        .packageManager = PackageManager("ID=debian"),
        .bundleIdentifier = "org.example.Racing",
        .terminate =
            [&yields] {
                yields = true;
                QCoreApplication::exit(0);
            },
    });
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &input,
                     [] { QCoreApplication::exit(0); });
    QMetaObject::invokeMethod(
        &input,
        [&] {
            delegate.applicationDidFinishLaunching();
            tell(yields ? "yields" : "stays");
            if (!yields) {
                delegate.window->hide();
                delegate.window->installEventFilter(&witness);
            }
        },
        Qt::QueuedConnection);
    return QApplication::exec();
}
