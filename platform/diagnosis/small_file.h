#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace quillbox::diagnosis {

/// The beginning of a file, `most` bytes at the most; none when it cannot be read. It never waits:
/// only plain files are read.
std::optional<std::string> readSmallFile(const std::filesystem::path& path,
                                         std::size_t most = 65536);

} // namespace quillbox::diagnosis
