#pragma once

#include "app/app_delegate.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_network.h"
#include "tests/fakes/fake_network_view.h"
#include "tests/fakes/fake_running_applications.h"
#include "tests/fakes/fake_status_host.h"
#include "tests/fakes/fake_user_defaults.h"
#include "tests/fakes/fake_window_presence.h"
#include "tests/fakes/recording_log.h"
#include "tests/fakes/recording_notice.h"
#include "tests/fakes/recording_workspace.h"

#include <QEvent>
#include <QObject>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

/// Counts the events of a type that a widget gets.
class EventCounter final : public QObject {
public:
    EventCounter(QObject& watched, QEvent::Type countedType) : type(countedType)
    {
        watched.installEventFilter(this);
    }

    bool eventFilter(QObject* /*watched*/, QEvent* event) override
    {
        count += event->type() == type ? 1 : 0;
        return false;
    }

    int count = 0;

private:
    const QEvent::Type type;
};

/// A controller (AppDelegate) with a fake environment.
class AppFixture : public ::testing::Test {
protected:
    static constexpr const char* kIdentifier = "org.example.Helper";

    /// Makes the controller without starting anything.
    void create(const std::optional<std::string>& bundleIdentifier = kIdentifier);

    /// Makes the controller if there is none, and finishes its launch.
    void launch();

    /// The same with stored settings for manual mode and a valid target.
    void launchManually();

    static Endpoint phoneNamed(const std::string& name, const std::string& domain = "local");

    /// The browses of the last controller.
    FakeDnsSd::Browse phoneBrowse() { return network.dnsSd().browses().at(earlierBrowses); }
    FakeDnsSd::Browse managementBrowse()
    {
        return network.dnsSd().browses().at(earlierBrowses + 1);
    }

    /// Makes discovery report exactly these phones.
    void findPhones(const std::vector<Endpoint>& phones);
    void findManagement(const std::vector<Endpoint>& phones);

    /// The listeners of running relays, in the order in which they were started.
    std::vector<std::shared_ptr<FakeListener>> runningListeners() const;
    std::vector<std::string> runningNames() const;

    /// The only running listener with that name.
    FakeListener& listenerNamed(const std::string& finderName) const;

    /// The endpoint to which connections to that listener are relayed.
    Endpoint targetOf(FakeListener& listener);

    void report(FakeListener& listener, Listener::State state, std::error_code error = {});

    bool isStatusReady() const;
    std::string statusText() const { return delegate->statusLabel.text().toStdString(); }

    /// Sets a status text that only a status report replaces.
    void markStatus() { delegate->statusLabel.setText(QStringLiteral("marked")); }
    bool isStatusMarked() const { return statusText() == "marked"; }

    std::optional<std::string> storedText(const std::string& key) const;
    std::optional<bool> storedBool(const std::string& key) const;

    FakeDispatch dispatch;
    FakeNetwork network;
    RecordingLog story;
    FakeUserDefaults defaults;
    RecordingWorkspace workspace;
    FakeStatusHost statusHost;
    FakeWindowPresence windowPresence;
    RecordingNotice notice;
    FakeNetworkView networkView;
    FakeRunningApplications applications;
    StartSettings startSettings; ///< used by `create`, as are the next three
    StartOptions startOptions;
    bool startsHidden = false;
    bool hasDisplay = true;
    int terminations = 0;
    std::size_t earlierBrowses = 0;
    std::unique_ptr<AppDelegate> delegate;
};

} // namespace quillbox
