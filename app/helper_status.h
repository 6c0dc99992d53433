#pragma once

#include "platform/traffic.h"

#include <QJsonObject>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// A phone that was found. Names are verbatim, here and below: UTF-8 that some host chose.
struct PhoneStatus {
    std::string name = {};
    bool hasFiles = false;
    bool hasWebManagement = false;

    bool operator==(const PhoneStatus&) const = default;
};

/// A relay that runs. The port that it listens on is nobody's business.
struct RelayStatus {
    std::string name = {};
    std::string target = {}; ///< its description
    Traffic traffic = {};

    bool operator==(const RelayStatus&) const = default;
};

/// What the helper is doing, for whoever asks from outside.
struct HelperStatus {
    bool isReady = false;
    std::string text = {}; ///< the status line
    bool isShownInFinder = false;
    bool isAutomatic = false;
    std::vector<PhoneStatus> phones = {}; ///< by name
    std::vector<RelayStatus> relays = {}; ///< by name
    Traffic total = {};                   ///< since the start, of relays that ended as well

    bool operator==(const HelperStatus&) const = default;
};

/// The form in which it is passed on and in which scripts get it.
QJsonObject jsonOf(const HelperStatus& status);

/// None unless the object is exactly of that form.
std::optional<HelperStatus> helperStatusIn(const QJsonObject& object);

/// The JSON text for scripts and terminals: readable, ASCII where a terminal would act upon what is
/// in a name, always UTF-8, ended with a line break.
std::string jsonText(const HelperStatus& status);

/// The text for people, some lines.
std::string plainText(const HelperStatus& status);

} // namespace quillbox
