#include "app/options.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using Result = std::variant<Options, OptionsError>;

Result parse(const std::vector<const char*>& arguments)
{
    return parseOptions(arguments);
}

Result action(Options::Action action)
{
    return Options{.action = action};
}

std::string errorOf(const Result& result)
{
    const auto* error = std::get_if<OptionsError>(&result);
    return error ? error->text : "";
}

TEST(Options, withoutArgumentsTheHelperRuns)
{
    EXPECT_EQ(parse({}), Result(Options()));
}

TEST(Options, helpAndVersionAreActions)
{
    EXPECT_EQ(parse({"--help"}), action(Options::Action::ShowHelp));
    EXPECT_EQ(parse({"--version"}), action(Options::Action::ShowVersion));
    EXPECT_EQ(parse({"--dns-sd-engine"}), action(Options::Action::RunDnsSdEngine));
}

TEST(Options, theFirstOfTwoActionsCounts)
{
    EXPECT_EQ(parse({"--help", "--version"}), action(Options::Action::ShowHelp));
    EXPECT_EQ(parse({"--version", "--help"}), action(Options::Action::ShowVersion));
}

TEST(Options, theDnsSdEngineCanBeChosen)
{
    EXPECT_EQ(parse({"--dns-sd=auto"}), Result(Options{.dnsSd = DnsSdChoice::Automatic}));
    EXPECT_EQ(parse({"--dns-sd=daemon"}), Result(Options{.dnsSd = DnsSdChoice::Daemon}));
    EXPECT_EQ(parse({"--dns-sd=embedded"}), Result(Options{.dnsSd = DnsSdChoice::Embedded}));
    EXPECT_EQ(parse({"--dns-sd=daemon", "--dns-sd=embedded"}),
              Result(Options{.dnsSd = DnsSdChoice::Embedded}));
}

TEST(Options, anUnknownEngineIsNamed)
{
    for (const char* argument : {"--dns-sd=avahi", "--dns-sd=", "--dns-sd"})
        EXPECT_NE(errorOf(parse({argument})).find('\'' + std::string(argument) + '\''),
                  std::string::npos)
            << argument;
}

TEST(Options, anUnknownOptionIsNamed)
{
    EXPECT_EQ(errorOf(parse({"--verbose"})), "unknown option '--verbose'");
    EXPECT_EQ(errorOf(parse({"--help=all"})), "unknown option '--help=all'");
    EXPECT_EQ(errorOf(parse({"-platform"})), "unknown option '-platform'");
    EXPECT_EQ(errorOf(parse({"--"})), "unknown option '--'");
    EXPECT_EQ(errorOf(parse({"--dns-sdx=auto"})), "unknown option '--dns-sdx=auto'");
}

TEST(Options, aStrayArgumentIsNamed)
{
    EXPECT_EQ(errorOf(parse({"192.0.2.7"})), "unexpected argument '192.0.2.7'");
    EXPECT_EQ(errorOf(parse({""})), "unexpected argument ''");
}

TEST(Options, aMistakeCountsEvenBesideARequestForHelp)
{
    EXPECT_EQ(errorOf(parse({"--help", "--verbose"})), "unknown option '--verbose'");
}

TEST(Options, helpNamesEveryOptionForUsers)
{
    const std::string help = helpText();
    for (const char* option : {"--help", "--version", "--dns-sd=", "auto", "daemon", "embedded"})
        EXPECT_NE(help.find(option), std::string::npos) << option;
    EXPECT_EQ(help.find("--dns-sd-engine"), std::string::npos);
}

} // namespace

} // namespace quillbox
