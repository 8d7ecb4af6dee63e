// The command line itself: mistakes that are refused before a request is sent, help, versions, --debug, and failing output.
#include "tools/kvoctl/support/kvoctl.h"

#include "support/scripted_service.h"

#include <ostream>
#include <sstream>
#include <vector>

namespace kvoctl_test {

namespace {

using support::ScriptedService;
using testing::HasSubstr;

struct Refused {
    std::string name;
    Arguments arguments;
    std::string command;  ///< the subcommand that the message names; empty: none
    std::string meaning;
};

std::ostream &operator<<(std::ostream &out, const Refused &row) { return out << row.name; }

class WrongUsage : public testing::TestWithParam<Refused> {};

TEST_P(WrongUsage, is_refused_before_a_request_is_sent)
{
    const auto &[name, arguments, command, meaning] = GetParam();
    const ScriptedService service({support::replies("ok")});
    const Ended ended = kvoctl(arguments);
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, (command.empty() ? "kvoctl: " : "kvoctl: " + command + ": ") + meaning + "\nSee \"kvoctl " +
                             (command.empty() ? "" : command + " ") + "--help\".\n");
    EXPECT_EQ(service.requests(), std::vector<std::string>{});
}

const std::vector<Refused> kRefused = {
    {"unknown_command", {"fly"}, "", R"("fly" is not a command)"},
    {"mistyped_command", {"statons"}, "", R"("statons" is not a command; did you mean "stations"?)"},
    {"mistyped_command_with_its_help", {"statons", "--help"}, "", R"("statons" is not a command; did you mean "stations"?)"},
    {"help_of_a_mistyped_command", {"help", "statons"}, "", R"("statons" is not a command; did you mean "stations"?)"},
    {"command_without_its_family", {"reboot"}, "", R"("reboot" is not a command; did you mean "viewer reboot"?)"},
    {"unknown_option", {"ready", "--now"}, "ready", R"("--now" is not an option)"},
    {"mistyped_option",
     {"stations", "--extendet=yes"},
     "stations",
     R"("--extendet" is not an option; did you mean "--extended"?)"},
    {"mistyped_global_option", {"ready", "--jsn"}, "ready", R"("--jsn" is not an option; did you mean "--json"?)"},
    {"too_many_arguments", {"stations", "all"}, "stations", R"(unexpected argument "all")"},
    {"address_of_300",
     {"station", "10.0.0.300"},
     "station",
     R"(STATION: "10.0.0.300" is not an IPv4 address; its four numbers go from 0 to 255, without leading zeros)"},
    {"address_with_a_leading_zero",
     {"brightness", "10.0.0.05", "on"},
     "brightness",
     R"(STATION: "10.0.0.05" is not an IPv4 address; its four numbers go from 0 to 255, without leading zeros)"},
    {"bad_address_among_several",
     {"usb", "lock", "set", "1", "0", "10.0.0.5", "256.0.0.1"},
     "usb lock set",
     R"(STATION: "256.0.0.1" is not an IPv4 address; its four numbers go from 0 to 255, without leading zeros)"},
    {"two_registry_lists", {"stations", "--previous", "--current"}, "stations", "--previous excludes --current"},
    {"extended_registry_list", {"stations", "--extended", "--previous"}, "stations", "--extended excludes --previous"},
    {"timeout_without_lock", {"stations", "--lock-timeout", "3"}, "stations", "--lock-timeout needs --previous or --current"},
    {"timeout_in_words",
     {"stations", "--current", "--lock-timeout", "soon"},
     "stations",
     R"(--lock-timeout: "soon" is not a whole number of seconds)"},
    {"negative_wait", {"ready", "--wait", "-1"}, "ready", R"(--wait: "-1" is not a whole number of seconds)"},
    {"wait_that_is_too_long",
     {"ready", "--wait", "4294967296"},
     "ready",
     R"(--wait: "4294967296" is not a whole number of seconds)"},
    {"wait_of_half_a_second", {"ready", "--wait", "0.5"}, "ready", R"(--wait: "0.5" is not a whole number of seconds)"},
    {"missing_station", {"station"}, "station", "STATION is required"},
    {"empty_station", {"station", ""}, "station", "STATION: a station's name or address cannot be empty"},
    {"station_with_address_0", {"station", "0.0.0.0"}, "station", "no station has the address 0.0.0.0"},
    {"line_feed_in_a_name",
     {"station", "a\nkillDaemon"},
     "station",
     R"(STATION: "a\x0AkillDaemon" contains a control character)"},
    {"tab_in_a_name", {"brightness", "a\tb", "on"}, "brightness", R"(STATION: "a\x09b" contains a control character)"},
    {"delete_character_in_a_name", {"station", "a\x7F"}, "station", R"(STATION: "a\x7F" contains a control character)"},
    {"name_that_is_too_long", {"station", std::string(260, 'n')}, "station", "STATION: a station's name has at most 259 bytes"},
    {"backlight_dim", {"backlight", "dim"}, "backlight", R"(STATE: "dim" is not one of on, off)"},
    {"backlight_by_number", {"backlight", "1"}, "backlight", R"(STATE: "1" is not one of on, off)"},
    {"brightness_without_a_state", {"brightness", "10.0.0.5"}, "brightness", "STATE is required"},
    {"debug_level_3", {"debug-level", "3"}, "debug-level", R"(LEVEL: "3" is not one of none, 1, 2, I, II)"}};

INSTANTIATE_TEST_SUITE_P(Rows, WrongUsage, testing::ValuesIn(kRefused), [](const auto &row) { return row.param.name; });

TEST(MissingCommand, shows_the_help_on_standard_error)
{
    for (const Arguments &family : {Arguments{}, Arguments{"usb"}, Arguments{"usb", "lock"}}) {
        Arguments asking = family;
        asking.emplace_back("--help");
        const Ended ended = kvoctl(family);
        EXPECT_EQ(ended.status, 2);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, kvoctl(asking).out);
    }
}

TEST(MissingCommand, is_shown_as_one_json_document)
{
    EXPECT_EQ(kvoctl({"--json"}).document(), Json::parse(R"({"error": {"code": null, "meaning": "a command is missing"}})"));
}

TEST(RefusedValue, is_shown_as_one_json_document_without_a_result_code)
{
    const Ended ended = kvoctl({"backlight", "dim", "--json"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.document(), Json::parse(R"({"error": {"code": null, "meaning": "STATE: \"dim\" is not one of on, off"}})"));
}

TEST(GlobalOptions, are_accepted_before_and_after_the_subcommand)
{
    const ScriptedService service({support::replies("yes")});
    for (const Arguments &arguments : {Arguments{"--json", "ready"}, Arguments{"ready", "--json"}}) {
        EXPECT_EQ(kvoctl(arguments).document(), Json::parse(R"({"ready": true})"));
    }
}

TEST(GlobalOptions, are_names_after_two_dashes)
{
    const ScriptedService service({support::replies("not found")});
    const Ended ended = kvoctl({"station", "--", "--json"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(service.requests().front(), "getExDescByName --json\n");
}

TEST(Help, lists_the_subcommands_by_family_and_the_exit_statuses)
{
    const Ended ended = kvoctl({"--help"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    for (const char *text : {"Stations:", "Panel:", "Service:", "stations", "station", "backlight", "brightness", "version",
                             "ready", "debug-level", "kill-daemon", "--json", "--debug", "Exit status: 0 done or yes"}) {
        EXPECT_THAT(ended.out, HasSubstr(text));
    }
}

TEST(Help, has_examples_for_every_subcommand)
{
    for (const std::string command :
         {"stations", "station", "backlight", "brightness", "version", "ready", "debug-level", "kill-daemon"}) {
        const Ended ended = kvoctl({command, "--help"});
        EXPECT_EQ(ended.status, 0);
        EXPECT_THAT(ended.out, HasSubstr("Examples:\n  kvoctl " + command));
    }
}

TEST(Help, is_also_a_command)
{
    EXPECT_EQ(kvoctl({"help"}).out, kvoctl({"--help"}).out);
    EXPECT_EQ(kvoctl({"--json", "help"}).out, kvoctl({"--help"}).out);
    const Ended ended = kvoctl({"help", "usb", "lock", "set"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.out, kvoctl({"usb", "lock", "set", "--help"}).out);
    EXPECT_THAT(kvoctl({"help", "help"}).out, testing::StartsWith("Show this help, or the help of a command\n"));
}

/// Checks the help of @p command and of all its subcommands.
void expectHelpThatFits(const Json &command, Arguments words)
{
    words.insert(words.begin(), "help");
    std::istringstream help(kvoctl(words).out);
    words.erase(words.begin());
    for (std::string line; std::getline(help, line);) {
        EXPECT_TRUE(line.size() <= 80 || line.starts_with("  kvo")) << line;  // users copy examples, so they stay whole
    }
    for (const Json &inner : command.at("commands")) {
        words.push_back(inner.at("name"));
        expectHelpThatFits(inner, words);
        words.pop_back();
    }
}

TEST(Help, fits_80_columns_by_default) { expectHelpThatFits(kvoctl({"complete", "--structure"}).document(), {}); }

TEST(Help, uses_the_width_of_the_terminal_or_the_variable_columns)
{
    const std::string folded = "  --debug                     Write the library's debug messages to standard\n"
                               "                              error\n";
    const std::string whole = "  --debug                     Write the library's debug messages to standard error\n";
    const std::string narrow = "  --debug\n      Write the library's debug messages\n      to standard error\n";
    EXPECT_THAT(kvoctl({"--help"}, {.terminal = 80}).out, HasSubstr(folded));
    EXPECT_THAT(kvoctl({"--help"}, {.terminal = 100, .environment = {"COLUMNS=80"}}).out, HasSubstr(whole));
    EXPECT_THAT(kvoctl({"--help"}, {.terminal = 40}).out, HasSubstr(narrow));
    EXPECT_THAT(kvoctl({"--help"}, {.environment = {"COLUMNS=100"}}).out, HasSubstr(whole));
    EXPECT_THAT(kvoctl({"--help"}, {.environment = {"COLUMNS=wide"}}).out, HasSubstr(folded));
}

TEST(Version, of_the_program_needs_no_service)
{
    const Ended ended = kvoctl({"--version"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "kvoctl " KVOCTL_VERSION " (library V%#.%#.#%.#%)\n"
                         "The library reports \"V%#.%#.#%.#%\" in every version, because programs compare the whole text. "
                         "This is " KVOCTL_VERSION ".\n");
}

TEST(Debug, shows_the_library_s_messages_once_and_does_not_change_standard_output)
{
    const ScriptedService service({support::replies("failed")});
    const Ended ended = kvoctl({"--debug", "--json", "ready"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.document()["error"]["code"], -1);
    EXPECT_THAT(ended.err, testing::StartsWith("kvo_hws_dll: activate debug mode\n"));
    EXPECT_THAT(ended.err, testing::EndsWith("\nkvo_hws_dll: is init complete - error sending request\n"
                                             "kvoctl: ready: the service refused or sent an unknown reply (result -1)\n"));
    const std::string message = "is init complete - error sending request";
    EXPECT_EQ(ended.err.find(message), ended.err.rfind(message));
}

TEST(Debug, escapes_replies_of_the_service)
{
    const ScriptedService service({support::replies("\x1B[2J")});
    const Ended ended = kvoctl({"--debug", "version"});
    EXPECT_THAT(ended.err, HasSubstr(R"(\x1B[2J)"));
    EXPECT_EQ(ended.err.find('\x1B'), std::string::npos);
    EXPECT_THAT(ended.out, HasSubstr("\nservice  \\x1B[2J\n"));
}

TEST(Debug, is_off_by_default)
{
    const ScriptedService service({support::replies("yes")});
    EXPECT_EQ(kvoctl({"ready"}).err, "");
}

TEST(Output, that_cannot_be_written_is_an_error)
{
    const ScriptedService service({support::replies("yes")});
    for (const Arguments &arguments : {Arguments{"ready"}, Arguments{"ready", "--json"}, Arguments{"--help"}}) {
        const Ended ended = kvoctl(arguments, {.outputFile = "/dev/full"});
        EXPECT_EQ(ended.status, 5);
        EXPECT_EQ(ended.err, "kvoctl: cannot write to standard output: No space left on device\n");
    }
}

}  // namespace

}  // namespace kvoctl_test
