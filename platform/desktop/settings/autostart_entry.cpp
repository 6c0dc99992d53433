#include "platform/desktop/settings/autostart_entry.h"

#include "platform/values/text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <unistd.h>

namespace quillbox {

namespace {

using Outcome = AutostartResult::Outcome;

/// A quoted argument of an Exec key. Backslashes are doubled, because the escape rules of string
/// values apply on top of the quoting.
std::string quotedForExec(std::string_view argument)
{
    std::string result = "\"";
    for (const char character : argument) {
        if (std::string_view(R"("`$)").find(character) != std::string_view::npos)
            result += R"(\\)";
        if (character == '\\')
            result += R"(\\\)";
        if (character == '%')
            result += '%';
        result += character;
    }
    return result + '"';
}

QString toPath(const std::string& path)
{
    return QFile::decodeName(QByteArray::fromStdString(path));
}

AutostartResult failure(const std::string& path, const std::string& reason)
{
    return {.outcome = Outcome::Failed, .text = "cannot change " + path + ": " + reason};
}

AutostartResult write(const std::string& path, const std::string& text)
{
    const QString name = toPath(path);
    const QString folder = QFileInfo(name).path();
    if (!QDir().mkpath(folder))
        return failure(path, "its folder cannot be created");
    QSaveFile file(name);
    const auto size = static_cast<qint64>(text.size());
    if (!file.open(QIODevice::WriteOnly) || file.write(text.data(), size) != size || !file.commit())
        return failure(path, file.errorString().toStdString());
    return {.outcome = Outcome::Done, .text = "Starts at login from now on: wrote " + path};
}

AutostartResult remove(const std::string& path)
{
    if (::unlink(path.c_str()) == 0)
        return {.outcome = Outcome::Done,
                .text = "Does not start at login any more: removed " + path};
    if (errno == ENOENT || errno == ENOTDIR)
        return {.outcome = Outcome::Done, .text = "Does not start at login: there is no " + path};
    return failure(path, std::generic_category().message(errno));
}

} // namespace

std::string ownProgram()
{
    std::error_code error;
    const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    return !error && std::filesystem::exists(path, error) ? path.string() : std::string();
}

std::optional<std::string> autostartText(const std::string& program)
{
    const bool isFit = program.starts_with('/') && isValidUtf8(program)
                       && std::none_of(program.begin(), program.end(), [](char character) {
                              const auto byte = static_cast<unsigned char>(character);
                              return byte < 0x20 || byte == 0x7f || character == '=';
                          });
    if (!isFit)
        return std::nullopt;
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Quillbox Helper\n"
           "Comment=Makes a Quillbox phone appear in the file manager\n"
           "Icon=org.quillbox.Helper\n"
           "Exec="
           + quotedForExec(program)
           + " --hidden\n"
             "Terminal=false\n"
             "StartupNotify=false\n"
             "X-GNOME-Autostart-enabled=true\n";
}

AutostartResult setAutostart(Autostart wanted, const std::string& path, const std::string& program)
{
    if (path.empty())
        return {.outcome = Outcome::Failed,
                .text = "cannot change the autostart entry: no home folder"};
    if (wanted == Autostart::Off)
        return remove(path);
    const auto text = autostartText(program);
    if (!text)
        return failure(path, "a desktop entry cannot name the program \"" + program + '"');
    return write(path, *text);
}

} // namespace quillbox
