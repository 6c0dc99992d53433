#include "platform/desktop/activation_tokens.h"
#include "platform/desktop/wayland_tokens.h"
#include "tests/platform/desktop/qt_support.h"

#include <QtGlobal>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;

constexpr const char* kPanelVariable = "XDG_ACTIVATION_TOKEN";

class ActivationTokensTest : public ::testing::Test {
protected:
    ActivationTokensTest() { environment.set(kPanelVariable, {}); }

    void request(ActivationTokens& from, const std::string& permission = {})
    {
        from.request(permission, [this](const std::string& token) { tokens.push_back(token); });
    }

    Environment environment;
    std::vector<std::string> tokens;
};

TEST_F(ActivationTokensTest, areEmptyWithoutADisplay)
{
    request(*makeActivationTokens());
    EXPECT_THAT(tokens, ElementsAre(""));
}

TEST_F(ActivationTokensTest, areEmptyWithoutACompositorThatGrantsThem)
{
    request(*makeWaylandTokens());
    EXPECT_THAT(tokens, ElementsAre(""));
}

TEST_F(ActivationTokensTest, areThoseOfTheProcessInWhichTheUserActed)
{
    request(*makeWaylandTokens(), "permission");
    request(*makeActivationTokens(), "permission");
    EXPECT_THAT(tokens, ElementsAre("permission", "permission"));
}

/// Such as one that it passed with a menu that was dismissed.
TEST_F(ActivationTokensTest, areNotThoseThatAPanelLeftInTheEnvironment)
{
    qputenv(kPanelVariable, "panel");
    request(*makeWaylandTokens());
    EXPECT_THAT(tokens, ElementsAre(""));
}

} // namespace

} // namespace quillbox
