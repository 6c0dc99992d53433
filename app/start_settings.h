#pragma once

#include "platform/reach.h"
#include "platform/user_defaults.h"

#include <optional>
#include <string_view>

namespace quillbox {

/// The DNS-SD engine.
enum class DnsSdChoice {
    Automatic, ///< avahi-daemon while it answers, else the embedded engine
    Daemon,
    Embedded,
};

/// "auto", "daemon" or "embedded", as on the command line and in the settings.
const char* nameOf(DnsSdChoice choice);
std::optional<DnsSdChoice> dnsSdChoiceNamed(std::string_view name);

/// The settings that are chosen on the command line and hold for a whole run. They are stored like
/// those of the window, so that a start at login does what the last start by hand was told.
struct StartSettings {
    Reach reach = Reach::Network;
    DnsSdChoice dnsSd = DnsSdChoice::Automatic;

    bool operator==(const StartSettings&) const = default;
};

/// What the command line says of them; what it does not name stays as it is stored.
struct StartOptions {
    std::optional<Reach> reach = {};
    std::optional<DnsSdChoice> dnsSd = {};

    bool operator==(const StartOptions&) const = default;
};

StartSettings storedStartSettings(UserDefaults& store);

/// `stored` with what the command line says in its place.
StartSettings chosen(const StartSettings& stored, const StartOptions& options);

/// Stores what differs between `stored` and `now`, and says on standard error what that is.
void keep(const StartSettings& stored, const StartSettings& now, UserDefaults& store);

} // namespace quillbox
