// The settings file with any content.

#include "platform/desktop/settings/settings_file.h"

#include <QJsonDocument>
#include <string>

#include "fuzz/harness.h"
#include <sys/mman.h>
#include <unistd.h>

namespace {

using quillbox::SettingsFile;
using quillbox::fuzz::require;

SettingsFile::Contents contentsOf(const void* data, std::size_t size)
{
    const int file = ::memfd_create("settings", MFD_CLOEXEC);
    require(file >= 0 && ::write(file, data, size) == static_cast<ssize_t>(size),
            "the file can be written");
    auto contents = SettingsFile("/proc/self/fd/" + std::to_string(file)).read();
    ::close(file);
    return contents;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto contents = contentsOf(data, size);
    require(contents.condition != SettingsFile::Condition::Absent, "the file exists");
    const bool isGood = contents.condition == SettingsFile::Condition::Good;
    require(isGood == contents.problem.empty(), "a damaged file has a problem text");
    if (!isGood)
        return 0;
    // Written and read again, it must have the same keys.
    const auto stored = QJsonDocument(contents.object).toJson();
    const auto again = contentsOf(stored.constData(), static_cast<std::size_t>(stored.size()));
    require(again.condition == SettingsFile::Condition::Good, "a written file can be read");
    require(again.object.keys() == contents.object.keys(), "no key is lost");
    return 0;
}
