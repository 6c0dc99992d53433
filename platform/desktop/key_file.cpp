#include "platform/desktop/key_file.h"

#include "platform/text.h"

#include <algorithm>

namespace quillbox {

namespace {

void dropSpaces(std::string_view& text)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
}

bool takePrefix(std::string_view& text, std::string_view prefix)
{
    if (!text.starts_with(prefix))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

} // namespace

std::string_view keyFileValue(std::string_view text, std::string_view group, std::string_view key)
{
    bool isInGroup = false;
    while (!text.empty()) {
        std::string_view line = takeLine(text);
        if (takePrefix(line, "["))
            isInGroup = takePrefix(line, group) && line.starts_with(']');
        if (!isInGroup || !takePrefix(line, key))
            continue;
        dropSpaces(line);
        if (!takePrefix(line, "="))
            continue;
        dropSpaces(line);
        return line;
    }
    return {};
}

bool hasElement(std::string_view list, std::string_view wanted)
{
    while (!list.empty()) {
        if (takePart(list, ';') == wanted)
            return true;
    }
    return false;
}

} // namespace quillbox
