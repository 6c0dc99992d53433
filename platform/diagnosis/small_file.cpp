#include "platform/diagnosis/small_file.h"

#include <fstream>

namespace quillbox::diagnosis {

std::optional<std::string> readSmallFile(const std::filesystem::path& path, std::size_t most)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error) || error)
        return std::nullopt;
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    std::string text(most, '\0');
    file.read(text.data(), static_cast<std::streamsize>(most));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

} // namespace quillbox::diagnosis
