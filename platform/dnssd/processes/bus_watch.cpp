#include "platform/dnssd/processes/bus_watch.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <utility>

#include <sys/inotify.h>
#include <unistd.h>

namespace quillbox::dnssd {

namespace {

std::string systemBusSocketPath()
{
    constexpr std::string_view kPrefix = "unix:path=";
    // The variable that libdbus reads; nothing in this program changes the environment.
    const char* variable = std::getenv("DBUS_SYSTEM_BUS_ADDRESS"); // NOLINT(concurrency-mt-unsafe)
    const std::string_view address = variable == nullptr ? "" : variable;
    if (address.starts_with(kPrefix)) {
        const auto path = address.substr(kPrefix.size());
        return std::string(path.substr(0, path.find_first_of(",;")));
    }
    return "/run/dbus/system_bus_socket";
}

} // namespace

BusWatch::BusWatch(std::string path)
    : socketPath(path.empty() ? systemBusSocketPath() : std::move(path)),
      notifier(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
}

BusWatch::~BusWatch()
{
    if (notifier >= 0)
        ::close(notifier);
}

void BusWatch::begin()
{
    end();
    // The socket's folder may be missing or be recreated, so its parent is watched too.
    const auto folder = std::filesystem::path(socketPath).parent_path();
    for (const auto& watched : {folder, folder.parent_path()}) {
        const int watch =
            ::inotify_add_watch(notifier, watched.c_str(), IN_CREATE | IN_MOVED_TO | IN_ONLYDIR);
        if (watch >= 0)
            watches.push_back(watch);
    }
}

void BusWatch::end()
{
    for (const int watch : watches)
        ::inotify_rm_watch(notifier, watch);
    watches.clear();
}

bool BusWatch::hasSocketAppeared()
{
    const std::filesystem::path path(socketPath);
    const std::string socketName = path.filename();
    const std::string folderName = path.parent_path().filename();
    alignas(inotify_event) std::array<char, 4096> buffer{};
    bool hasAppeared = false;
    for (;;) {
        const ssize_t length = ::read(notifier, buffer.data(), buffer.size());
        if (length <= 0)
            break;
        for (std::size_t offset = 0; offset < static_cast<std::size_t>(length);) {
            const auto* event = reinterpret_cast<const inotify_event*>(&buffer[offset]);
            const std::string_view name = event->len > 0 ? event->name : "";
            hasAppeared = hasAppeared || name == socketName || name == folderName;
            offset += sizeof(inotify_event) + event->len;
        }
    }
    if (hasAppeared)
        begin();
    return hasAppeared;
}

} // namespace quillbox::dnssd
