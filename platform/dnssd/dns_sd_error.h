#pragma once

#include <system_error>

namespace quillbox {

/// The errors of DNS-SD. Messages are plain sentences for the user.
enum class DnsSdError {
    EngineUnavailable = 1, ///< no DNS-SD engine is up
    EngineNotStarted,      ///< its program or a library is missing, or it ended at once
    NameTaken,             ///< name conflict (RFC 6762, section 9); the service is being renamed
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
