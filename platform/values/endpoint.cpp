#include "platform/values/endpoint.h"

#include <string_view>
#include <utility>

namespace quillbox {

namespace {

/// Escapes `separators`, which include the backslash, and control characters.
std::string escaped(std::string_view text, std::string_view separators)
{
    std::string result;
    result.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20 || byte == 0x7f) {
            result += '\\';
            result += static_cast<char>('0' + byte / 100);
            result += static_cast<char>('0' + byte / 10 % 10);
            result += static_cast<char>('0' + byte % 10);
            continue;
        }
        if (separators.find(character) != std::string_view::npos)
            result += '\\';
        result += character;
    }
    return result;
}

std::string escapedLabel(std::string_view label)
{
    return escaped(label, R"(.\%:)");
}

/// Types and domains keep their dots, which are unambiguous: those of the instance label before
/// them are escaped, and type and domain are separated by a '/', which is escaped in both.
std::string escapedPath(std::string_view path)
{
    return escaped(path, R"(\%:/)");
}

} // namespace

Endpoint::Endpoint(HostEndpoint host) : value_(std::move(host)) {}

Endpoint::Endpoint(ServiceEndpoint service) : value_(std::move(service)) {}

const ServiceEndpoint* Endpoint::service() const
{
    return std::get_if<ServiceEndpoint>(&value_);
}

const HostEndpoint* Endpoint::host() const
{
    return std::get_if<HostEndpoint>(&value_);
}

std::string Endpoint::description() const
{
    if (const auto* address = host())
        return escapedPath(address->host) + ':' + std::to_string(address->port);
    const auto* instance = service();
    return escapedLabel(instance->name) + '.' + escapedPath(instance->type) + '/'
           + escapedPath(instance->domain);
}

} // namespace quillbox
