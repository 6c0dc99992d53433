#include "platform/diagnosis/words.h"

#include <algorithm>

namespace quillbox::diagnosis {

std::vector<std::string_view> wordsOf(std::string_view line)
{
    constexpr std::string_view kSeparators = " \t\r";
    std::vector<std::string_view> words;
    for (;;) {
        const auto first = line.find_first_not_of(kSeparators);
        if (first == std::string_view::npos)
            return words;
        line.remove_prefix(first);
        const auto end = std::min(line.find_first_of(kSeparators), line.size());
        words.push_back(line.substr(0, end));
        line.remove_prefix(end);
    }
}

} // namespace quillbox::diagnosis
