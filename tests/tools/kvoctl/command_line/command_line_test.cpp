// The command line itself: what is refused before anything is asked, help, versions, --debug, and outputs that fail.
#include "tools/kvoctl/support/kvoctl.h"

#include "support/scripted_service.h"

#include <ostream>

namespace kvoctl_test {

namespace {

using support::ScriptedService;
using testing::HasSubstr;

struct Refused {
    std::string name;
    Arguments arguments;
    std::string command;  ///< the subcommand that is named; empty: none
    std::string meaning;
};

std::ostream &operator<<(std::ostream &out, const Refused &row) { return out << row.name; }

class Usage : public testing::TestWithParam<Refused> {};

TEST_P(Usage, is_refused_before_anything_is_asked)
{
    const auto &[name, arguments, command, meaning] = GetParam();
    const ScriptedService service({support::replies("ok")});
    const Ended ended = kvoctl(arguments);
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, (command.empty() ? "kvoctl: " : "kvoctl: " + command + ": ") + meaning + "\n\"kvoctl " +
                             (command.empty() ? "" : command + " ") + "--help\" tells how.\n");
    EXPECT_EQ(service.requests(), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Usage,
    testing::Values(
        Refused{"no_command", {}, "", "A subcommand is required"},
        Refused{"unknown_command", {"reboot"}, "", R"("reboot" is no command)"},
        Refused{"unknown_option", {"ready", "--now"}, "ready", "The following argument was not expected: --now"},
        Refused{"too_many_arguments", {"stations", "all"}, "stations", "The following argument was not expected: all"},
        Refused{"two_lists", {"stations", "--previous", "--current"}, "stations", "--previous excludes --current"},
        Refused{
            "extended_registry_list", {"stations", "--extended", "--previous"}, "stations", "--extended excludes --previous"},
        Refused{"timeout_without_lock",
                       {"stations", "--lock-timeout", "3"},
                       "stations",
                       "--lock-timeout needs --previous or --current"},
        Refused{"timeout_of_words",
                       {"stations", "--current", "--lock-timeout", "soon"},
                       "stations",
                       R"(--lock-timeout: "soon" is no number of whole seconds)"},
        Refused{"negative_wait", {"ready", "--wait", "-1"}, "ready", R"(--wait: "-1" is no number of whole seconds)"},
        Refused{"too_long_a_wait",
                       {"ready", "--wait", "4294967296"},
                       "ready",
                       R"(--wait: "4294967296" is no number of whole seconds)"},
        Refused{"half_a_second", {"ready", "--wait", "0.5"}, "ready", R"(--wait: "0.5" is no number of whole seconds)"},
        Refused{"no_station", {"station"}, "station", "STATION is required"},
        Refused{"empty_station", {"station", ""}, "station", "STATION: a station's name or address can not be empty"},
        Refused{"station_0", {"station", "0.0.0.0"}, "station", "no station has the address 0.0.0.0"},
        Refused{"line_feed_in_a_name",
                       {"station", "a\nkillDaemon"},
                       "station",
                       R"(STATION: "a\x0AkillDaemon" holds a control character)"},
        Refused{
            "tab_in_a_name", {"brightness", "a\tb", "on"}, "brightness", R"(STATION: "a\x09b" holds a control character)"},
        Refused{"delete_in_a_name", {"station", "a\x7F"}, "station", R"(STATION: "a\x7F" holds a control character)"},
        Refused{"too_long_a_name",
                       {"station", std::string(260, 'n')},
                       "station",
                       "STATION: a station's name has at most 259 bytes"},
        Refused{"dim_backlight", {"backlight", "dim"}, "backlight", R"(STATE: "dim" is none of on, off)"},
        Refused{"numbered_backlight", {"backlight", "1"}, "backlight", R"(STATE: "1" is none of on, off)"},
        Refused{"brightness_of_nothing", {"brightness", "10.0.0.5"}, "brightness", "STATE is required"},
        Refused{"debug_level_3", {"debug-level", "3"}, "debug-level", R"(LEVEL: "3" is none of none, 1, 2, I, II)"}),
    [](const auto &row) { return row.param.name; });

TEST(Usage, is_one_document_without_a_result_code_in_json)
{
    const Ended ended = kvoctl({"backlight", "dim", "--json"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.document(), Json::parse(R"({"error": {"code": null, "meaning": "STATE: \"dim\" is none of on, off"}})"));
}

TEST(GlobalOptions, stand_before_or_behind_the_subcommand)
{
    const ScriptedService service({support::replies("yes")});
    for (const Arguments &arguments : {Arguments{"--json", "ready"}, Arguments{"ready", "--json"}}) {
        EXPECT_EQ(kvoctl(arguments).document(), Json::parse(R"({"ready": true})"));
    }
}

TEST(GlobalOptions, behind_two_dashes_are_names)
{
    const ScriptedService service({support::replies("not found")});
    const Ended ended = kvoctl({"station", "--", "--json"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(service.requests(), std::vector<std::string>{"getExDescByName --json\n"});
}

TEST(Help, shows_every_subcommand_by_family_and_the_exit_statuses)
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

TEST(Version, of_the_program_asks_nobody)
{
    const Ended ended = kvoctl({"--version"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "kvoctl " KVOCTL_VERSION " (library V%#.%#.#%.#%)\n");
}

TEST(Debug, shows_the_library_s_messages_once_each_and_leaves_standard_output_alone)
{
    const ScriptedService service({support::replies("failed")});
    const Ended ended = kvoctl({"--debug", "--json", "ready"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.document()["error"]["code"], -1);
    EXPECT_THAT(ended.err, testing::StartsWith("kvo_hws_dll: activate debug mode\n"));
    EXPECT_THAT(ended.err, testing::EndsWith("\nkvo_hws_dll: is init complete - error sending request\n"
                                             "kvoctl: ready: the service refused or answered something unknown (result -1)\n"));
    const std::string message = "is init complete - error sending request";
    EXPECT_EQ(ended.err.find(message), ended.err.rfind(message));
}

TEST(Debug, escapes_what_the_service_sent)
{
    const ScriptedService service({support::replies("\x1B[2J")});
    const Ended ended = kvoctl({"--debug", "version"});
    EXPECT_THAT(ended.err, HasSubstr(R"(\x1B[2J)"));
    EXPECT_EQ(ended.err.find('\x1B'), std::string::npos);
    EXPECT_THAT(ended.out, testing::EndsWith("service  \\x1B[2J\n"));
}

TEST(Debug, is_off_by_default)
{
    const ScriptedService service({support::replies("yes")});
    EXPECT_EQ(kvoctl({"ready"}).err, "");
}

TEST(Output, that_can_not_be_written_is_a_failure)
{
    const ScriptedService service({support::replies("yes")});
    for (const Arguments &arguments : {Arguments{"ready"}, Arguments{"ready", "--json"}, Arguments{"--help"}}) {
        const Ended ended = kvoctl(arguments, {.outputFile = "/dev/full"});
        EXPECT_EQ(ended.status, 5);
        EXPECT_EQ(ended.err, "kvoctl: can not write to standard output: No space left on device\n");
    }
}

}  // namespace

}  // namespace kvoctl_test
