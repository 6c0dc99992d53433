#include "platform/diagnosis/firewall_probe.h"

#include "platform/diagnosis/small_file.h"
#include "platform/values/text.h"

#include <filesystem>
#include <string>
#include <system_error>

namespace quillbox::diagnosis {

Seen ufwIn(std::string_view configuration)
{
    constexpr std::string_view kKey = "ENABLED=";
    while (!configuration.empty()) {
        std::string line(takeLine(configuration));
        std::erase_if(line, [](char each) { return each == ' ' || each == '"' || each == '\r'; });
        if (line.starts_with(kKey))
            return line.substr(kKey.size()) == "yes" ? Seen::Yes : Seen::No;
    }
    return Seen::No;
}

Seen probeUfw(const std::filesystem::path& root)
{
    const auto configuration = root / "etc/ufw/ufw.conf";
    std::error_code error;
    if (!std::filesystem::exists(configuration, error))
        return error ? Seen::Unknown : Seen::No;
    const auto text = readSmallFile(configuration);
    return text ? ufwIn(*text) : Seen::Unknown;
}

} // namespace quillbox::diagnosis
