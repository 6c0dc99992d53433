#include "platform/desktop/presence/activation_tokens.h"
#include "tests/platform/desktop/qt_support.h"
#include "tests/platform/desktop/x_server.h"

#include <QtGlobal>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

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

TEST_F(ActivationTokensTest, areNewOnXEachTimeAndEndInTheTimeOfTheServer)
{
    const XServer server;
    const auto ofX = makeX11Tokens();
    request(*ofX);
    request(*ofX, "permission");
    ASSERT_THAT(tokens, SizeIs(2));
    EXPECT_THAT(tokens, Each(MatchesRegex("quillbox-helper-.*_TIME[0-9]+")));
    const auto identifier = [](const std::string& token) {
        return token.substr(0, token.find("_TIME"));
    };
    EXPECT_NE(identifier(tokens[0]), identifier(tokens[1]));
}

TEST_F(ActivationTokensTest, areEmptyWithoutTheXServer)
{
    environment.set("DISPLAY", ":none");
    request(*makeX11Tokens());
    EXPECT_THAT(tokens, ElementsAre(""));
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
