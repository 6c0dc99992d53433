#include "app/app_delegate.h"

#include <string>

namespace quillbox {

namespace {

constexpr const char* kHost = "host";
constexpr const char* kPort = "port";
constexpr const char* kShare = "share";
constexpr const char* kUser = "user";
constexpr const char* kShowInFinder = "showInFinder";
constexpr const char* kAutomaticDiscovery = "automaticDiscovery";

/// Not the standard SMB port, 445: the app on the phone is not permitted to listen on it.
constexpr const char* kDefaultPort = "4445";
constexpr const char* kDefaultShare = "NAS";
constexpr const char* kDefaultUser = "nas";

} // namespace

void AppDelegate::readFields()
{
    const auto fill = [this](EditField& field, const char* key, const char* standard) {
        field.fill(QString::fromStdString(environment.userDefaults.stringForKey(key, standard)));
    };
    fill(hostField, kHost, "");
    fill(portField, kPort, kDefaultPort);
    fill(shareField, kShare, kDefaultShare);
    fill(userField, kUser, kDefaultUser);
}

void AppDelegate::readCheckBoxes()
{
    UserDefaults& stored = environment.userDefaults;
    showInFinder.setChecked(stored.boolForKey(kShowInFinder, true));
    automaticDiscovery.setChecked(stored.boolForKey(kAutomaticDiscovery, true));
}

void AppDelegate::saveFields(const std::string& host, std::uint16_t port)
{
    UserDefaults& store = environment.userDefaults;
    store.setString(kHost, host);
    store.setString(kPort, std::to_string(port));
    store.setString(kShare, shareField.text().toStdString());
    store.setString(kUser, userField.text().toStdString());
}

void AppDelegate::toggleFinderVisibility()
{
    environment.userDefaults.setBool(kShowInFinder, showInFinder.isChecked());
    if (showInFinder.isChecked()) {
        restartRelay();
        return;
    }
    stopRelays();
    setStatus({.ready = false, .text = "Finder visibility is off"});
}

void AppDelegate::toggleAutomaticDiscovery()
{
    environment.userDefaults.setBool(kAutomaticDiscovery, automaticDiscovery.isChecked());
    if (showInFinder.isChecked())
        restartRelay();
}

void AppDelegate::restartFromMenu()
{
    showInFinder.setChecked(true);
    environment.userDefaults.setBool(kShowInFinder, true);
    restartRelay();
}

void AppDelegate::controlTextDidEndEditing()
{
    if (showInFinder.isChecked() && !automaticDiscovery.isChecked())
        restartRelay();
}

} // namespace quillbox
