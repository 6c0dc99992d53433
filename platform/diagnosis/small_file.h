#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace quillbox::diagnosis {

/// The beginning of a file, at most `most` bytes; nullopt if it cannot be read. Reads regular files
/// only, so that it never blocks on a pipe or device.
std::optional<std::string> readSmallFile(const std::filesystem::path& path,
                                         std::size_t most = 65536);

} // namespace quillbox::diagnosis
