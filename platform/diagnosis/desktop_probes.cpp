#include "platform/diagnosis/desktop_probes.h"

#include "platform/diagnosis/small_file.h"
#include "platform/values/text.h"
#include "platform/x11/x11.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <string_view>

#include <xcb/xcb.h>

namespace quillbox::diagnosis {

namespace {

namespace fs = std::filesystem;

/// Relative to a library folder, for each major version of KDE.
constexpr std::array kKioPlugins{
    "qt6/plugins/kf6/kio/smb.so",
    "qt5/plugins/kf5/kio/smb.so",
    "plugins/kf6/kio/smb.so",
    "plugins/kf5/kio/smb.so",
};

bool isThere(const fs::path& path)
{
    std::error_code ignored;
    return fs::exists(path, ignored);
}

std::string variable(const char* name)
{
    // Nothing here changes the environment.
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    return value == nullptr ? "" : value;
}

/// Whether ufw is enabled, according to the text of its ufw.conf.
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

} // namespace

FileBrowserFacts probeFileBrowser(const std::vector<fs::path>& dataFolders,
                                  const std::vector<fs::path>& libraryFolders)
{
    FileBrowserFacts facts;
    facts.hasGvfs = std::any_of(dataFolders.begin(), dataFolders.end(), [](const fs::path& each) {
        return isThere(each / "gvfs/mounts/smb.mount");
    });
    for (const fs::path& each : libraryFolders) {
        for (const char* plugin : kKioPlugins)
            facts.hasKio = facts.hasKio || isThere(each / plugin);
    }
    return facts;
}

std::vector<fs::path> systemDataFolders()
{
    std::vector<fs::path> folders;
    std::string list = variable("XDG_DATA_DIRS");
    if (list.empty())
        list = "/usr/local/share:/usr/share";
    for (std::string_view rest = list; !rest.empty();) {
        const fs::path folder(takePart(rest, ':'));
        if (folder.is_absolute())
            folders.push_back(folder);
    }
    return folders;
}

std::vector<fs::path> systemLibraryFolders()
{
    std::vector<fs::path> folders{"/usr/lib", "/usr/lib64", "/usr/lib64/qt6", "/usr/lib64/qt5"};
    // Debian has a folder for each architecture, such as x86_64-linux-gnu.
    std::error_code error;
    for (fs::directory_iterator each("/usr/lib", error), end; !error && each != end;
         each.increment(error)) {
        if (each->path().filename().native().find("-linux-") != std::string::npos)
            folders.push_back(each->path());
    }
    return folders;
}

bool isDesktopNamed()
{
    return !variable("DISPLAY").empty() || !variable("WAYLAND_DISPLAY").empty();
}

Seen probeUfw(const fs::path& root)
{
    const auto configuration = root / "etc/ufw/ufw.conf";
    std::error_code error;
    if (!fs::exists(configuration, error))
        return error ? Seen::Unknown : Seen::No;
    const auto text = readSmallFile(configuration);
    return text ? ufwIn(*text) : Seen::Unknown;
}

Seen probeTray()
{
    if (variable("DISPLAY").empty())
        return Seen::No;
    int screenNumber = 0;
    const x11::Connection connection(xcb_connect(nullptr, &screenNumber));
    const auto selection =
        x11::atom(connection.get(), "_NET_SYSTEM_TRAY_S" + std::to_string(screenNumber));
    const auto cookie = xcb_get_selection_owner(connection.get(), selection);
    const auto reply = x11::owned(xcb_get_selection_owner_reply(connection.get(), cookie, nullptr));
    if (!reply)
        return Seen::Unknown;
    return reply->owner == XCB_WINDOW_NONE ? Seen::No : Seen::Yes;
}

} // namespace quillbox::diagnosis
