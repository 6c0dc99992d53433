#include "platform/desktop/settings/user_folders.h"

#include <QByteArray>

#include <pwd.h>
#include <unistd.h>

namespace quillbox {

namespace {

/// The value of an environment variable; empty if it is not an absolute path.
std::string absolutePathIn(const char* variable)
{
    const std::string value = qgetenv(variable).toStdString();
    return value.starts_with('/') ? value : std::string();
}

std::string homeFolder()
{
    if (std::string home = absolutePathIn("HOME"); !home.empty())
        return home;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): called at startup, while there is one thread
    const passwd* user = ::getpwuid(::geteuid());
    return user && user->pw_dir && user->pw_dir[0] == '/' ? user->pw_dir : "";
}

} // namespace

std::string configurationPath(const std::string& file)
{
    if (const std::string folder = absolutePathIn("XDG_CONFIG_HOME"); !folder.empty())
        return folder + '/' + file;
    const std::string home = homeFolder();
    return home.empty() ? std::string() : home + "/.config/" + file;
}

} // namespace quillbox
