#include "control/options.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using Parsed = std::variant<Options, std::string>;

Parsed parse(const std::vector<const char*>& arguments)
{
    return parseOptions(arguments);
}

Parsed action(Options::Action action)
{
    return Options{.action = action};
}

std::string errorOf(const Parsed& result)
{
    const auto* error = std::get_if<std::string>(&result);
    return error ? *error : "";
}

TEST(Options, withoutArgumentsTheHelperRuns)
{
    EXPECT_EQ(parse({}), Parsed(Options()));
}

TEST(Options, helpAndVersionAreActions)
{
    EXPECT_EQ(parse({"--help"}), action(Options::Action::ShowHelp));
    EXPECT_EQ(parse({"--version"}), action(Options::Action::ShowVersion));
}

TEST(Options, theFirstOfTwoActionsCounts)
{
    EXPECT_EQ(parse({"--help", "--version"}), action(Options::Action::ShowHelp));
    EXPECT_EQ(parse({"--version", "--help"}), action(Options::Action::ShowVersion));
}

Parsed start(const StartOptions& options)
{
    return Options{.start = options};
}

TEST(Options, theDnsSdEngineCanBeChosen)
{
    EXPECT_EQ(parse({"--dns-sd=auto"}), start({.dnsSd = DnsSdChoice::Automatic}));
    EXPECT_EQ(parse({"--dns-sd=daemon"}), start({.dnsSd = DnsSdChoice::Daemon}));
    EXPECT_EQ(parse({"--dns-sd=embedded"}), start({.dnsSd = DnsSdChoice::Embedded}));
    EXPECT_EQ(parse({"--dns-sd=daemon", "--dns-sd=embedded"}),
              start({.dnsSd = DnsSdChoice::Embedded}));
}

TEST(Options, otherComputersCanBeLeftOutAndLetInAgain)
{
    EXPECT_EQ(parse({"--this-computer-only"}), start({.reach = Reach::ThisComputer}));
    EXPECT_EQ(parse({"--this-computer-only=on"}), start({.reach = Reach::ThisComputer}));
    EXPECT_EQ(parse({"--this-computer-only=off"}), start({.reach = Reach::Network}));
    EXPECT_EQ(parse({"--this-computer-only", "--dns-sd=daemon"}),
              start({.reach = Reach::ThisComputer, .dnsSd = DnsSdChoice::Daemon}));
    for (const char* argument : {"--this-computer-only=", "--this-computer-only=yes"})
        EXPECT_EQ(errorOf(parse({argument})),
                  '\'' + std::string(argument)
                      + "' is not one of --this-computer-only=on and --this-computer-only=off");
}

TEST(Options, aRestoredSessionStartsTheHelper)
{
    EXPECT_EQ(parse({"-session", "10a4c9_1700000000_42"}), Parsed(Options()));
    EXPECT_EQ(parse({"--hidden", "-session", "--help"}), Parsed(Options{.isHidden = true}));
    EXPECT_EQ(errorOf(parse({"-session"})), "'-session' must be followed by an identifier");
    EXPECT_EQ(errorOf(parse({"status", "-session", "x"})), "'-session' does not go with 'status'");
    EXPECT_EQ(errorOf(parse({"--session", "x"})), "unknown option '--session'");
}

TEST(Options, whatIsToldCanBeChosen)
{
    EXPECT_EQ(parse({"--verbose"}),
              Parsed(Options{.verbose = {kLogCategories.begin(), kLogCategories.end()}}));
    EXPECT_EQ(parse({"--verbose=relay"}), Parsed(Options{.verbose = {LogCategory::Relay}}));
    EXPECT_EQ(parse({"--verbose=discovery,connection", "--verbose=relay"}),
              Parsed(Options{.verbose = {LogCategory::Discovery, LogCategory::Relay,
                                         LogCategory::Connection}}));
    for (const LogCategory category : kLogCategories) {
        const std::string argument = "--verbose=" + std::string(nameOf(category));
        EXPECT_EQ(parse({argument.c_str()}), Parsed(Options{.verbose = {category}})) << argument;
        EXPECT_NE(std::string(helpText()).find(nameOf(category)), std::string::npos) << argument;
    }
}

TEST(Options, anUnknownCategoryIsNamed)
{
    const std::string known =
        " is not a category of --verbose: discovery, engine, advertising, relay, "
        "connection, desktop";
    EXPECT_EQ(errorOf(parse({"--verbose=relays"})), "'relays'" + known);
    EXPECT_EQ(errorOf(parse({"--verbose="})), "''" + known);
    EXPECT_EQ(errorOf(parse({"--verbose=relay,"})), "''" + known);
    EXPECT_EQ(errorOf(parse({"--verbose=relay,Desktop"})), "'Desktop'" + known);
    EXPECT_EQ(errorOf(parse({"--verbosely"})), "unknown option '--verbosely'");
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
    EXPECT_EQ(errorOf(parse({"--debug"})), "unknown option '--debug'");
    EXPECT_EQ(errorOf(parse({"--help=all"})), "unknown option '--help=all'");
    EXPECT_EQ(errorOf(parse({"-platform"})), "unknown option '-platform'");
    EXPECT_EQ(errorOf(parse({"--"})), "unknown option '--'");
    EXPECT_EQ(errorOf(parse({"--dns-sdx=auto"})), "unknown option '--dns-sdx=auto'");
}

TEST(Options, anUnknownCommandIsNamedAndTheCommandsAreListed)
{
    const std::string known = " (commands: status, open, manage, restart, quit, doctor)";
    EXPECT_EQ(errorOf(parse({"opne"})), "unknown command 'opne'" + known);
    EXPECT_EQ(errorOf(parse({"--hidden", "Doctor"})), "unknown command 'Doctor'" + known);
    EXPECT_EQ(errorOf(parse({"192.0.2.7"})), "unknown command '192.0.2.7'" + known);
    EXPECT_EQ(errorOf(parse({""})), "unknown command ''" + known);
}

TEST(Options, helpHasAShortForm)
{
    EXPECT_EQ(parse({"-h"}), parse({"--help"}));
    EXPECT_EQ(parse({"open", "-h"}), parse({"open", "--help"}));
    EXPECT_EQ(parse({"-h", "doctor"}), parse({"--help", "doctor"}));
    EXPECT_EQ(errorOf(parse({"-hidden"})), "unknown option '-hidden'");
    for (const char* text : {helpText(), helpTextOf(ControlCommand::Open), helpTextOfDoctor()})
        EXPECT_NE(std::string(text).find("\n  -h, --help "), std::string::npos) << text;
}

TEST(Options, aMistakeCountsEvenBesideARequestForHelp)
{
    EXPECT_EQ(errorOf(parse({"--help", "--debug"})), "unknown option '--debug'");
}

TEST(Options, helpNamesEveryOptionForUsers)
{
    const std::string help = helpText();
    for (const char* option : {"--help", "--version", "--dns-sd=", "auto", "daemon", "embedded"})
        EXPECT_NE(help.find(option), std::string::npos) << option;
}

Parsed command(const ControlRequest& request, bool asJson = false)
{
    return Options{.action = Options::Action::Control, .request = request, .asJson = asJson};
}

TEST(Options, aStartMayBeHidden)
{
    EXPECT_EQ(parse({"--hidden"}), Parsed(Options{.isHidden = true}));
    EXPECT_EQ(parse({"--hidden", "--dns-sd=daemon"}),
              Parsed(Options{.start = {.dnsSd = DnsSdChoice::Daemon}, .isHidden = true}));
    EXPECT_EQ(errorOf(parse({"--hidden=yes"})), "unknown option '--hidden=yes'");
}

TEST(Options, theAutostartIsTurnedOnAndOff)
{
    EXPECT_EQ(parse({"--autostart=on"}), action(Options::Action::TurnAutostartOn));
    EXPECT_EQ(parse({"--autostart=off"}), action(Options::Action::TurnAutostartOff));
    for (const char* argument :
         {"--autostart", "--autostart=", "--autostart=yes", "--autostart=On"})
        EXPECT_EQ(errorOf(parse({argument})),
                  '\'' + std::string(argument)
                      + "' is not one of --autostart=on and --autostart=off");
}

TEST(Options, theAutostartTakesWhatLaterStartsKeep)
{
    EXPECT_EQ(
        parse({"--autostart=on", "--this-computer-only", "--dns-sd=daemon"}),
        Parsed(Options{.action = Options::Action::TurnAutostartOn,
                       .start = {.reach = Reach::ThisComputer, .dnsSd = DnsSdChoice::Daemon}}));
    for (const char* argument : {"--autostart=on", "--autostart=off"}) {
        for (const char* other : {"--verbose", "--verbose=relay", "--hidden"})
            EXPECT_EQ(errorOf(parse({other, argument})),
                      '\'' + std::string(other) + "' does not go with '--autostart'");
        EXPECT_EQ(errorOf(parse({argument, "-session", "10ab"})),
                  "'-session' does not go with '--autostart'");
    }
}

TEST(Options, commandsGoToTheRunningCopy)
{
    EXPECT_EQ(parse({"status"}), command({.command = ControlCommand::Status}));
    EXPECT_EQ(parse({"status", "--json"}), command({.command = ControlCommand::Status}, true));
    EXPECT_EQ(parse({"--json", "status"}), command({.command = ControlCommand::Status}, true));
    EXPECT_EQ(parse({"open"}), command({.command = ControlCommand::Open}));
    EXPECT_EQ(parse({"open", "Quillbox Office"}),
              command({.command = ControlCommand::Open, .phone = "Quillbox Office"}));
    EXPECT_EQ(parse({"manage", "status"}),
              command({.command = ControlCommand::Manage, .phone = "status"}));
    EXPECT_EQ(parse({"restart"}), command({.command = ControlCommand::Restart}));
    EXPECT_EQ(parse({"quit"}), command({.command = ControlCommand::Quit}));
}

TEST(Options, aCommandTakesNoMoreThanItKnows)
{
    EXPECT_EQ(errorOf(parse({"status", "Quillbox"})), "unexpected argument 'Quillbox'");
    EXPECT_EQ(errorOf(parse({"quit", "restart"})), "unexpected argument 'restart'");
    EXPECT_EQ(errorOf(parse({"open", "Quillbox", "Office"})), "unexpected argument 'Office'");
    EXPECT_EQ(errorOf(parse({"open", ""})), "'' cannot be the name of a phone");
    EXPECT_EQ(errorOf(parse({"open", "\xff"})), "'\xff' cannot be the name of a phone");
    for (const auto& line : std::vector<std::vector<const char*>>{{"open", "--json"}, {"--json"}})
        EXPECT_EQ(errorOf(parse(line)), "'--json' goes with 'status' and 'doctor' only");
    const std::string tooLong(256, 'x');
    EXPECT_NE(errorOf(parse({"open", tooLong.c_str()})), "");
    const std::string longest(255, 'x');
    EXPECT_EQ(errorOf(parse({"open", longest.c_str()})), "");
}

TEST(Options, aCommandStartsNothing)
{
    for (const char* option : {"--hidden", "--this-computer-only", "--verbose", "--dns-sd=daemon",
                               "--autostart=on", "--autostart=off"}) {
        const std::string named = '\'' + std::string(option) + "' does not go with ";
        EXPECT_EQ(errorOf(parse({"status", option})), named + "'status'");
        EXPECT_EQ(errorOf(parse({option, "open"})), named + "'open'");
        EXPECT_EQ(errorOf(parse({"open", "Quillbox", option})), named + "'open'");
        EXPECT_EQ(errorOf(parse({"doctor", option})), named + "'doctor'");
        EXPECT_EQ(errorOf(parse({option, "doctor"})), named + "'doctor'");
    }
}

TEST(Options, theFirstMistakeIsReported)
{
    EXPECT_EQ(errorOf(parse({"open", "--verbose=relay", "--hidden", "--debug"})),
              "'--verbose=relay' does not go with 'open'");
    EXPECT_EQ(errorOf(parse({"--dns-sd=auto", "--hidden", "quit", "--debug"})),
              "'--dns-sd=auto' does not go with 'quit'");
    EXPECT_EQ(errorOf(parse({"--hidden", "--debug", "open"})), "unknown option '--debug'");
    EXPECT_EQ(errorOf(parse({"open", "--debug", "--hidden"})), "unknown option '--debug'");
}

TEST(Options, theDoctorIsAskedWithoutARunningCopy)
{
    EXPECT_EQ(parse({"doctor"}),
              Parsed(Options{.action = Options::Action::Diagnose, .isDoctor = true}));
    EXPECT_EQ(
        parse({"--json", "doctor"}),
        Parsed(Options{.action = Options::Action::Diagnose, .isDoctor = true, .asJson = true}));
    EXPECT_EQ(errorOf(parse({"doctor", "Quillbox"})), "unexpected argument 'Quillbox'");
    EXPECT_EQ(errorOf(parse({"doctor", "doctor"})), "unexpected argument 'doctor'");
    EXPECT_EQ(parse({"open", "doctor"}),
              command({.command = ControlCommand::Open, .phone = "doctor"}));
}

TEST(Options, theDoctorHasHelpOfItsOwn)
{
    EXPECT_EQ(parse({"doctor", "--help"}),
              Parsed(Options{.action = Options::Action::ShowHelp, .isDoctor = true}));
    EXPECT_NE(std::string(helpText()).find("\n  doctor"), std::string::npos);
    EXPECT_EQ(std::string(helpTextOfDoctor()).find("Usage: quillbox-helper doctor"), 0U);
    EXPECT_NE(std::string(helpTextOfDoctor()).find("1 a check failed"), std::string::npos);
}

TEST(Options, eachCommandHasHelpOfItsOwn)
{
    for (const auto each : {ControlCommand::Status, ControlCommand::Open, ControlCommand::Manage,
                            ControlCommand::Restart, ControlCommand::Quit}) {
        const char* name = nameOf(each);
        EXPECT_EQ(parse({name, "--help"}), Parsed(Options{.action = Options::Action::ShowHelp,
                                                          .request = ControlRequest{each, {}}}));
        EXPECT_NE(std::string(helpText()).find(std::string("\n  ") + name), std::string::npos);
        const std::string help = helpTextOf(each);
        EXPECT_EQ(help.find(std::string("Usage: quillbox-helper ") + name), 0U);
        EXPECT_NE(help.find("Exit status: 0"), std::string::npos);
        EXPECT_NE(help.find("3 Quillbox Helper is not"), std::string::npos) << name;
    }
}

} // namespace

} // namespace quillbox
