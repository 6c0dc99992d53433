#pragma once

#include "platform/user_defaults.h"
#include "platform/values/dns_sd_mode.h"
#include "platform/values/reach.h"

#include <algorithm>
#include <optional>
#include <span>
#include <string_view>

namespace quillbox {

const char* nameOf(DnsSdMode mode);

/// The enumerator of that name; `names` has those of all, in their order.
template <typename Value>
std::optional<Value> valueNamed(std::string_view name, std::span<const std::string_view> names)
{
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? std::nullopt
                                : std::optional(static_cast<Value>(found - names.begin()));
}

/// The settings that are chosen on the command line and hold for a whole run. They are stored like
/// those of the window, so that a start at login does what the last start by hand was told.
struct StartSettings {
    Reach reach = Reach::Network;
    DnsSdMode dnsSd = DnsSdMode::Automatic;

    bool operator==(const StartSettings&) const = default;
};

/// What the command line says of them.
struct StartOptions {
    std::optional<Reach> reach = {};
    std::optional<DnsSdMode> dnsSd = {};

    bool operator==(const StartOptions&) const = default;
};

/// What holds for a start with these options: what they do not name is as it is stored, or else the
/// default. If what is stored cannot be used, it may have said that the relays are for this
/// computer only: then they are, and standard error says so.
StartSettings startSettings(const StartOptions& options, UserDefaults& store);

/// Stores what the options name, and says on standard error what that changes; `since` ends the
/// sentence ("from now on"). False if it could not be stored.
bool keep(const StartOptions& options, UserDefaults& store, const char* since);

} // namespace quillbox
