#pragma once

#include "platform/values/endpoint.h"

#include <system_error>

namespace quillbox {

inline const Endpoint kPhone =
    ServiceEndpoint{.name = "Quillbox Office", .type = "_quillbox._tcp", .domain = "local"};

inline const std::error_code kReset = std::make_error_code(std::errc::connection_reset);

} // namespace quillbox
