#pragma once

#include "control/start_settings.h"
#include "platform/values/traffic.h"

#include <optional>
#include <string>
#include <vector>

class QJsonDocument;
class QJsonObject;

namespace quillbox {

/// A discovered phone. Names, here and below, are verbatim: UTF-8 that some host chose.
struct PhoneStatus {
    std::string name = {};
    bool hasFiles = false;
    bool hasWebManagement = false;

    bool operator==(const PhoneStatus&) const = default;
};

/// A running relay. The port that it listens on is deliberately not published.
struct RelayStatus {
    std::string name = {};
    std::string target = {}; ///< the name of the phone, or the typed host and port
    std::string host = {};   ///< its host name in the network view; empty while not advertised
    Traffic traffic = {};

    bool operator==(const RelayStatus&) const = default;
};

/// The state of the helper, for other processes.
struct HelperStatus {
    bool isReady = false;
    std::string text = {}; ///< the status line
    std::string hint = {}; ///< why file managers list no phones, and what to do; mostly empty
    bool isShownInFinder = false;
    bool isAutomatic = false;
    std::optional<StartSettings> start = {}; ///< nullopt: told by version 0.1.0, which sends none
    std::vector<PhoneStatus> phones = {};    ///< sorted by name
    std::vector<RelayStatus> relays = {};    ///< sorted by name
    Traffic total = {};                      ///< since the start, including stopped relays

    bool operator==(const HelperStatus&) const = default;
};

QJsonObject jsonOf(const HelperStatus& status);

/// The status with that form; nullopt for an object with a missing, additional or wrongly typed
/// member. The hint and the start settings may be missing, for version 0.1.0 writes neither.
std::optional<HelperStatus> helperStatusIn(const QJsonObject& json);

/// The JSON text for scripts and terminals: indented UTF-8 that ends with a newline; characters
/// that a terminal would interpret are escaped.
std::string jsonText(const HelperStatus& status);
std::string jsonText(const QJsonDocument& document);

/// The text for the user, in several lines.
std::string plainText(const HelperStatus& status);

} // namespace quillbox
