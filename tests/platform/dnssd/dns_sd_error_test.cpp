#include "platform/dnssd/dns_sd_error.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

namespace quillbox {

TEST(DnsSdError, hasASentenceForEachValue)
{
    std::set<std::string> messages;
    for (int value = static_cast<int>(DnsSdError::EngineUnavailable);
         value <= static_cast<int>(DnsSdError::Internal); ++value) {
        const std::error_code error = static_cast<DnsSdError>(value);
        EXPECT_TRUE(error);
        EXPECT_FALSE(error.message().empty());
        EXPECT_NE(error.message().back(), '.') << "it is a fragment of a longer sentence";
        messages.insert(error.message());
    }
    EXPECT_EQ(messages.size(), 9U);
    EXPECT_EQ(std::error_code(DnsSdError::EngineUnavailable).message(),
              "No DNS-SD service is running");
}

TEST(DnsSdError, survivesAValueThatItDoesNotKnow)
{
    EXPECT_FALSE(std::error_code(4711, dnsSdCategory()).message().empty());
}

} // namespace quillbox
