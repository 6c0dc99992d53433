#include "platform/diagnosis/mdns_message.h"

#include <algorithm>
#include <string_view>

namespace quillbox::diagnosis {

namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::uint16_t kPointer = 12;
constexpr std::uint16_t kInternet = 1;

void append(std::vector<std::byte>& message, std::uint16_t number)
{
    message.push_back(static_cast<std::byte>(number >> 8U));
    message.push_back(static_cast<std::byte>(number & 0xffU));
}

/// As labels, each preceded by its length (RFC 1035, section 3.1).
void appendName(std::vector<std::byte>& message, std::string_view name)
{
    while (!name.empty()) {
        const auto dot = std::min(name.find('.'), name.size());
        message.push_back(static_cast<std::byte>(dot));
        for (const char character : name.substr(0, dot))
            message.push_back(static_cast<std::byte>(character));
        name.remove_prefix(std::min(dot + 1, name.size()));
    }
    message.push_back(std::byte{0});
}

void appendQuestion(std::vector<std::byte>& message, const std::string& name)
{
    appendName(message, name);
    append(message, kPointer);
    append(message, kInternet);
}

} // namespace

std::vector<std::byte> mdnsQuestion(std::uint16_t identifier, const std::string& type)
{
    std::vector<std::byte> message;
    for (const std::uint16_t number : {identifier, std::uint16_t{0}, std::uint16_t{2},
                                       std::uint16_t{0}, std::uint16_t{0}, std::uint16_t{0}})
        append(message, number);
    appendQuestion(message, "_services._dns-sd._udp.local");
    appendQuestion(message, type + ".local");
    return message;
}

bool isMdnsAnswer(std::span<const std::byte> message)
{
    if (message.size() < kHeaderSize)
        return false;
    const bool isResponse = (message[2] & std::byte{0x80}) != std::byte{0};
    const bool hasAnswer = message[6] != std::byte{0} || message[7] != std::byte{0};
    return isResponse && hasAnswer;
}

} // namespace quillbox::diagnosis
