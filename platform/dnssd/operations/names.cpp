#include "platform/dnssd/operations/names.h"

#include "platform/values/text.h"

#include <algorithm>

namespace quillbox::dnssd {

namespace {

char lowerCase(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

bool isLetterOrDigit(char character)
{
    const char lower = lowerCase(character);
    return (lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9');
}

} // namespace

bool isInstanceName(std::string_view name)
{
    return !name.empty() && name.size() <= kMaximumLabelSize
           && name.find('\0') == std::string_view::npos && isValidUtf8(name);
}

bool isServiceType(std::string_view type)
{
    const std::size_t dot = type.find('.');
    if (dot == std::string_view::npos)
        return false;
    const std::string_view service = type.substr(0, dot);
    const std::string_view protocol = type.substr(dot + 1);
    return service.size() >= 2 && service.size() <= kMaximumLabelSize && service[0] == '_'
           && std::ranges::all_of(service.substr(1),
                                  [](char c) { return c == '-' || isLetterOrDigit(c); })
           && (isSameName(protocol, "_tcp") || isSameName(protocol, "_udp"));
}

std::string folded(std::string_view name)
{
    std::string result(name);
    std::ranges::transform(result, result.begin(), lowerCase);
    return result;
}

bool isSameName(std::string_view a, std::string_view b)
{
    return std::ranges::equal(a, b, {}, lowerCase, lowerCase);
}

std::string alternativeName(std::string_view name, unsigned number)
{
    if (number <= 1)
        return std::string(name);
    const std::string suffix = " #" + std::to_string(number);
    return std::string(truncated(name, kMaximumLabelSize - suffix.size())) + suffix;
}

unsigned numberAfter(unsigned number)
{
    constexpr unsigned kHighestNumber = 99'999;
    return number < kHighestNumber ? number + 1 : 2;
}

std::string hostSlug(std::string_view text, std::size_t size)
{
    std::string slug;
    for (const char character : withoutMarks(text)) {
        if (isLetterOrDigit(character))
            slug += lowerCase(character);
        else if (!slug.empty() && slug.back() != '-')
            slug += '-';
    }
    slug.resize(std::min(slug.size(), size));
    while (!slug.empty() && slug.back() == '-')
        slug.pop_back();
    return slug;
}

} // namespace quillbox::dnssd
