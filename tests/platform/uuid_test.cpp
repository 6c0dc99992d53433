#include "platform/uuid.h"

#include <array>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace quillbox {

TEST(Uuid, hasThePrintedFormOfVersion4)
{
    const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    for (int count = 0; count < 100; ++count) {
        const auto uuid = makeUuid();
        EXPECT_TRUE(std::regex_match(uuid, form)) << uuid;
    }
}

TEST(Uuid, isAnotherOneEachTimeInAllItsRandomDigits)
{
    std::array<std::set<char>, 36> seen;
    std::set<std::string> all;
    for (int count = 0; count < 1000; ++count) {
        const auto uuid = makeUuid();
        EXPECT_TRUE(all.insert(uuid).second);
        for (std::size_t place = 0; place < seen.size(); ++place)
            seen.at(place).insert(uuid.at(place));
    }
    for (std::size_t place = 0; place < seen.size(); ++place) {
        const std::set<std::size_t> fixed{8, 13, 14, 18, 23};
        const std::size_t expected = fixed.contains(place) ? 1 : place == 19 ? 4 : 16;
        EXPECT_EQ(seen.at(place).size(), expected) << place;
    }
}

} // namespace quillbox
