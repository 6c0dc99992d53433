#include "platform/diagnosis/port_holders.h"

#include "platform/diagnosis/small_file.h"
#include "platform/diagnosis/words.h"
#include "platform/text.h"

#include <array>
#include <charconv>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include <pwd.h>
#include <unistd.h>

namespace quillbox::diagnosis {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestTable = std::size_t{4} << 20U;

template <typename Number> std::optional<Number> numberIn(std::string_view text, int base = 10)
{
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

std::optional<UdpSocket> socketIn(std::string_view line)
{
    // Columns: sl, local address, remote address, state, queues, timer, retransmissions, user,
    // timeout, inode.
    const auto words = wordsOf(line);
    if (words.size() < 10)
        return std::nullopt;
    const auto port = numberIn<std::uint16_t>(words[1].substr(words[1].rfind(':') + 1), 16);
    const auto user = numberIn<std::uint32_t>(words[7]);
    const auto inode = numberIn<std::uint64_t>(words[9]);
    if (!port || !user || !inode)
        return std::nullopt;
    return UdpSocket{*port, *user, *inode};
}

std::string nameOfUser(std::uint32_t user)
{
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> room{};
    if (::getpwuid_r(user, &entry, room.data(), room.size(), &found) == 0 && found != nullptr)
        return found->pw_name;
    return std::to_string(user);
}

/// The inode of the socket in the target of a link, such as "socket:[4711]".
std::optional<std::uint64_t> inodeIn(std::string_view link)
{
    constexpr std::string_view kStart = "socket:[";
    if (!link.starts_with(kStart) || !link.ends_with(']'))
        return std::nullopt;
    link.remove_prefix(kStart.size());
    link.remove_suffix(1);
    return numberIn<std::uint64_t>(link);
}

/// The names of the programs that have one of the sockets open, as far as this user may see them.
class Programs {
public:
    explicit Programs(const std::set<std::uint64_t>& inodes)
    {
        std::error_code ignored;
        for (const auto& process : fs::directory_iterator("/proc", ignored)) {
            const std::string number = process.path().filename();
            if (const auto id = numberIn<int>(number))
                look(*id, process.path(), inodes);
        }
    }

    std::map<std::uint64_t, std::string> names;
    std::set<std::uint64_t> own;

private:
    void look(int process, const fs::path& path, const std::set<std::uint64_t>& inodes)
    {
        std::error_code error;
        for (fs::directory_iterator each(path / "fd", error), end; !error && each != end;
             each.increment(error)) {
            std::error_code ignored;
            const auto inode = inodeIn(fs::read_symlink(each->path(), ignored).native());
            if (!inode || !inodes.contains(*inode))
                continue;
            if (process == ::getpid())
                own.insert(*inode);
            names[*inode] = nameOf(path);
        }
    }

    static std::string nameOf(const fs::path& path)
    {
        std::string name = readSmallFile(path / "comm").value_or("");
        while (name.ends_with('\n'))
            name.pop_back();
        return name;
    }
};

} // namespace

std::vector<UdpSocket> udpSocketsIn(std::string_view table)
{
    std::vector<UdpSocket> sockets;
    while (!table.empty()) {
        if (const auto socket = socketIn(takeLine(table)))
            sockets.push_back(*socket);
    }
    return sockets;
}

std::vector<PortHolder> findPortHolders(std::uint16_t port)
{
    std::map<std::uint64_t, std::uint32_t> users;
    std::set<std::uint64_t> inodes;
    for (const char* path : {"/proc/self/net/udp", "/proc/self/net/udp6"}) {
        const auto table = readSmallFile(path, kLongestTable);
        for (const UdpSocket& each : udpSocketsIn(table.value_or(""))) {
            if (each.port == port && inodes.insert(each.inode).second)
                users[each.inode] = each.user;
        }
    }
    const Programs programs(inodes);
    std::set<PortHolder> holders;
    for (const auto& [inode, user] : users) {
        if (programs.own.contains(inode))
            continue;
        const auto name = programs.names.find(inode);
        holders.insert({name == programs.names.end() ? "" : name->second, nameOfUser(user)});
    }
    return {holders.begin(), holders.end()};
}

} // namespace quillbox::diagnosis
