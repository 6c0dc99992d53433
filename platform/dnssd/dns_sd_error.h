#pragma once

#include <system_error>

namespace quillbox {

/// What DNS-SD can answer instead of a result. Messages are plain sentences for the user.
enum class DnsSdError {
    EngineUnavailable = 1, ///< no DNS-SD service answers at present
    NameTaken,             ///< another host uses the name; it is being changed
    InvalidName,
    InvalidType,
    NotPermitted,
    TooManyEntries,
    NotFound,
    Internal,
};

const std::error_category& dnsSdCategory();

std::error_code make_error_code(DnsSdError error);

} // namespace quillbox

template <> struct std::is_error_code_enum<quillbox::DnsSdError> : std::true_type {
};
