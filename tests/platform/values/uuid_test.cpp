#include "platform/values/uuid.h"

#include <set>

#include <gtest/gtest.h>

namespace quillbox {

TEST(Uuid, isOfVersion4)
{
    for (int count = 0; count < 100; ++count) {
        const auto uuid = makeUuid();
        EXPECT_EQ(uuid.words[1] >> 12 & 0xfU, 4U);
        EXPECT_EQ(uuid.words[2] >> 30, 2U);
    }
}

TEST(Uuid, isAnotherOneEachTimeInAllItsRandomBits)
{
    Uuid ones;
    Uuid zeros;
    std::set<Uuid> all;
    for (int count = 0; count < 1000; ++count) {
        const auto uuid = makeUuid();
        EXPECT_TRUE(all.insert(uuid).second);
        for (std::size_t word = 0; word < uuid.words.size(); ++word) {
            ones.words.at(word) |= uuid.words.at(word);
            zeros.words.at(word) |= ~uuid.words.at(word);
        }
    }
    EXPECT_EQ(ones, (Uuid{{0xffffffffU, 0xffff4fffU, 0xbfffffffU, 0xffffffffU}}));
    EXPECT_EQ(zeros, (Uuid{{0xffffffffU, 0xffffbfffU, 0x7fffffffU, 0xffffffffU}}));
}

} // namespace quillbox
