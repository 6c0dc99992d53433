#pragma once

#include "control/start_settings.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/network.h"
#include "platform/network_view.h"
#include "platform/notice.h"
#include "platform/running_applications.h"
#include "platform/status_host.h"
#include "platform/user_defaults.h"
#include "platform/values/package_manager.h"
#include "platform/window_presence.h"
#include "platform/workspace.h"

#include <functional>
#include <optional>
#include <string>

namespace quillbox {

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

} // namespace quillbox
