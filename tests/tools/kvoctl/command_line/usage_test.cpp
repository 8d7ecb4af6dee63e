// Mistakes that each subcommand refuses before it sends a request, and the help of each subcommand.
#include "tools/kvoctl/support/function_commands.h"
#include "tools/kvoctl/support/kvoctl.h"
#include "tools/kvosim/support/temporary_directory.h"

#include "support/scripted_service.h"

#include <algorithm>
#include <ostream>
#include <set>
#include <sstream>
#include <vector>

namespace kvoctl_test {

namespace {

using support::ScriptedService;
using testing::HasSubstr;

// ---- Wrong values ----

struct Wrong {
    std::string name;
    std::string command;
    Arguments arguments;
    std::string meaning;
};

std::ostream &operator<<(std::ostream &out, const Wrong &row) { return out << row.name; }

class WrongValue : public testing::TestWithParam<Wrong> {};

Arguments words(const std::string &command)
{
    Arguments list;
    std::istringstream text(command);
    for (std::string word; text >> word;) {
        list.push_back(word);
    }
    return list;
}

/// Runs @p command with @p arguments, and expects that it refuses them without a request.
void expectRefused(const std::string &command, const Arguments &arguments, const std::string &meaning)
{
    const ScriptedService service({support::replies("ok")});
    Arguments all = words(command);
    all.insert(all.end(), arguments.begin(), arguments.end());
    const Ended ended = kvoctl(all);
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "kvoctl: " + command + ": " + meaning + "\nSee \"kvoctl " + command + " --help\".\n");
    EXPECT_EQ(service.requests(), std::vector<std::string>{});
}

TEST_P(WrongValue, is_refused_before_a_request_is_sent)
{
    const Wrong &row = GetParam();
    expectRefused(row.command, row.arguments, row.meaning);
}

/// Valid arguments of an agent, followed by more, which are wrong.
Arguments agent(const Arguments &more)
{
    Arguments all{"--focus", "10.0.0.5", "--remote", "127.0.0.1", "--session", "3"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

const std::string kAnswerWords = "neither a whole number nor one of done, yes, no, not-running, busy, failed";

const std::string kAllOrNone = "give all values to set it, or none to show it";

const std::vector<Wrong> kWrongValues = {
    {"unknown_viewer_command", "viewer", {"play"}, R"("play" is not a command)"},
    {"unknown_lock_command", "usb lock", {"open"}, R"("open" is not a command)"},
    {"command_of_another_family", "viewer", {"stations"}, R"("stations" is not a command; did you mean "stations"?)"},
    {"viewer_with_two_parts", "viewer start", {"10.0.0.5", "a", "b"}, "PART3 is required"},
    {"viewer_part_with_a_quote", "viewer start", {"10.0.0.5", "a\"", "b", "c"}, "PART1: a double quote cannot be sent"},
    {"viewer_part_with_a_line_feed",
     "viewer start",
     {"10.0.0.5", "a", "b\nkillDaemon", "c"},
     R"(PART2: "b\x0AkillDaemon" contains a control character)"},
    {"viewer_part_that_is_too_long",
     "viewer start",
     {"10.0.0.5", "a", "b", std::string(301, 'c')},
     "PART3: at most 300 bytes can be sent"},
    {"viewer_number_in_words",
     "viewer start-configured",
     {"10.0.0.5", "cfg", "three"},
     R"(NUMBER: "three" is not a whole number from 0 to 4294967295)"},
    {"viewer_with_two_ways_to_stop", "viewer stop", {"10.0.0.5", "--preempt", "--no-clean"}, "--preempt excludes --no-clean"},
    {"negative_status_value",
     "viewer status-line",
     {"10.0.0.5", "-1", "2", "x"},
     R"(VALUE1: "-1" is not a whole number from 0 to 4294967295)"},
    {"brightness_of_101", "panel brightness", {"10.0.0.5", "101"}, R"(PERCENT: "101" is not a whole number from 0 to 100)"},
    {"brightness_in_hexadecimal",
     "panel brightness",
     {"10.0.0.5", "0x10"},
     R"(PERCENT: "0x10" is not a whole number from 0 to 100)"},
    {"brightness_mode_2", "panel brightness-v2", {"10.0.0.5", "2"}, R"(MODE: "2" is not a whole number from 0 to 1)"},
    {"brightness_v2_of_101",
     "panel brightness-v2",
     {"10.0.0.5", "0", "101"},
     R"(PERCENT: "101" is not a whole number from 0 to 100)"},
    {"numlock_by_number", "panel numlock", {"10.0.0.5", "1"}, R"(STATE: "1" is not one of enabled, disabled)"},
    {"capslock_on", "panel capslock", {"10.0.0.5", "on"}, R"(STATE: "on" is not one of enabled, disabled)"},
    {"sw_capslock_2", "panel sw-capslock", {"10.0.0.5", "2"}, R"(STATE: "2" is not a whole number from -1 to 1)"},
    {"rv4_mode_1", "panel rv4-mode", {"10.0.0.5", "1"}, R"(MODE: "1" is not one of auto, individual)"},
    {"negative_mcp_address", "address mcp", {"10.0.0.5", "-1"}, R"(ADDRESS: "-1" is not a whole number from 0 to 4294967295)"},
    {"dck_enable_yes", "address dck-enable", {"10.0.0.5", "yes"}, R"(STATE: "yes" is not one of on, off)"},
    {"cks_index_256", "address cks-index", {"10.0.0.5", "256"}, R"(INDEX: "256" is not a whole number from 0 to 255)"},
    {"key_with_one_value", "address simulate-key", {"10.0.0.5", "12"}, "VALUE2 is required"},
    {"find_without_a_number", "address find", {}, "give exactly one of --mcp, --dck and --kvo-index"},
    {"find_with_two_numbers", "address find", {"--mcp", "1", "--dck", "2"}, "give exactly one of --mcp, --dck and --kvo-index"},
    {"channel_info_that_is_too_long",
     "channel-info set",
     {"10.0.0.5", std::string(231, 'i')},
     "INFO: at most 230 bytes can be sent"},
    {"two_versions_of_devices", "input devices", {"10.0.0.5", "--v1", "--v2"}, "--v1 excludes --v2"},
    {"calibration_with_one_value", "touch calibration", {"10.0.0.5", "40"}, kAllOrNone},
    {"calibration_threshold_of_minus_2",
     "touch calibration",
     {"10.0.0.5", "-2", "0"},
     R"(THRESHOLD: "-2" is not a whole number from -1 to 2147483647)"},
    {"calibration_nonlinear_2",
     "touch calibration",
     {"10.0.0.5", "0", "2"},
     R"(NONLINEAR: "2" is not a whole number from -1 to 1)"},
    {"usb_lock_with_one_value", "usb lock set", {"1"}, "SECOND is required"},
    {"usb_lock_without_a_station", "usb lock set", {"1", "0"}, "name the stations, or give --all for every station"},
    {"usb_lock_with_all_and_a_station",
     "usb lock set",
     {"1", "0", "--all", "10.0.0.5"},
     "--all means every station; do not name any"},
    {"connectors_of_two_stations", "usb connectors", {"10.0.0.5", "10.0.0.6"}, "give at most one station"},
    {"usb_watch_with_a_station", "usb watch", {"10.0.0.5"}, R"(unexpected argument "10.0.0.5")"},
    {"exec_without_a_program", "usb watch", {"--exec"}, "--exec: 1 required PROGRAM missing"},
    {"agent_without_a_station", "agent run", {"--remote", "127.0.0.1", "--session", "3"}, "give --focus or --focus-name"},
    {"agent_without_a_remote_service", "agent run", {"--focus", "10.0.0.5", "--session", "3"}, "--remote is required"},
    {"agent_without_a_session", "agent run", {"--focus", "10.0.0.5", "--remote", "127.0.0.1"}, "--session is required"},
    {"agent_with_two_stations", "agent run", agent({"--focus-name", "st1"}), "--focus excludes --focus-name"},
    {"agent_with_a_short_address",
     "agent run",
     {"--focus", "10.5", "--remote", "127.0.0.1", "--session", "3"},
     R"(--focus: "10.5" is not a dotted IPv4 address)"},
    {"agent_with_address_0",
     "agent run",
     {"--focus", "0.0.0.0", "--remote", "127.0.0.1", "--session", "3"},
     "--focus: 0.0.0.0 is not the address of a host"},
    {"agent_with_a_name_as_remote_address",
     "agent run",
     {"--focus", "10.0.0.5", "--remote", "panel", "--session", "3"},
     R"(--remote: "panel" is not a dotted IPv4 address)"},
    {"agent_with_session_10",
     "agent run",
     {"--focus", "10.0.0.5", "--remote", "127.0.0.1", "--session", "10"},
     R"(--session: "10" is not a whole number from 0 to 9)"},
    {"agent_with_a_line_feed_in_the_name",
     "agent run",
     {"--focus-name", "a\nmcpFlag=1", "--remote", "127.0.0.1", "--session", "3"},
     R"(--focus-name: "a\x0AmcpFlag=1" contains a control character)"},
    {"agent_with_an_empty_name",
     "agent run",
     {"--focus-name", "", "--remote", "127.0.0.1", "--session", "3"},
     "--focus-name: the text is empty"},
    {"agent_with_a_screen_that_is_too_long", "agent run", agent({"--screen", std::string(128, 's')}),
     "--screen: at most 127 bytes are allowed"},
    {"agent_with_a_line_feed_in_the_screen", "agent run", agent({"--screen", "a\nb"}),
     R"(--screen: "a\x0Ab" contains a control character)"},
    {"agent_with_a_negative_index", "agent run", agent({"--kvo-index", "-1"}),
     R"(--kvo-index: "-1" is not a whole number from 0 to 4294967295)"},
    {"answer_without_a_command", "agent run", agent({"--answer", "done"}),
     R"(--answer: "done" is not of the form COMMAND=ANSWER)"},
    {"answer_to_an_unknown_command", "agent run", agent({"--answer", "ping=1"}),
     R"(--answer: "ping" is not one of stop-viewer, stop-viewer-preempt, stop-viewer-noclean, activate-me, )"
     "show-viewer-active, set-darken, set-statusline"},
    {"unknown_answer", "agent run", agent({"--answer", "stop-viewer=perhaps"}), R"(--answer: "perhaps" is )" + kAnswerWords},
    {"unknown_answer_to_all", "agent run", agent({"--answer-all", "1x"}), R"(--answer-all: "1x" is )" + kAnswerWords},
    {"two_ways_to_answer", "agent run", agent({"--exec", "true", "--answer-all", "1"}), "--answer-all excludes --exec"},
    {"check_with_a_remote_service",
     "agent check",
     {"--focus", "10.0.0.5", "--remote", "127.0.0.1"},
     R"("--remote" is not an option)"},
    {"check_without_a_station", "agent check", {}, "give --focus or --focus-name"},
    {"events_watch_with_a_station", "events watch", {"10.0.0.5"}, R"(unexpected argument "10.0.0.5")"},
    {"unknown_metric",
     "metrics",
     {"10.0.0.5", "weight"},
     R"(NAME: "weight" is not one of oem-layout, softkey-type, keyboard-caps, dpi, hardware-caps, rotation)"},
    {"flags_with_a_prefix", "clients", {"--flags", "0x1F"}, R"(--flags: "0x1F" is not a hexadecimal number)"},
    {"flags_that_are_too_large",
     "clients",
     {"--flags", "10000000000000000"},
     R"(--flags: "10000000000000000" is not a hexadecimal number)"},
    {"registry_lock_with_a_station", "registry lock", {"10.0.0.5"}, R"(unexpected argument "10.0.0.5")"},
    {"page_of_address_0", "panel show", {"0.0.0.0"}, "no station has the address 0.0.0.0"},
    {"station_with_a_tab", "panel type", {"a\tb"}, R"(STATION: "a\x09b" contains a control character)"},
    {"doctor_with_a_station", "doctor", {"10.0.0.5"}, R"(unexpected argument "10.0.0.5")"},
    {"trace_of_a_program_without_dashes", "trace", {"ls"}, "the command to run goes after \"--\": kvoctl trace -- ls"},
    {"trace_of_no_program", "trace", {"--"}, "give the program to run after \"--\", or leave out the \"--\""},
    {"trace_of_no_time", "trace", {"--for", "0"}, R"(--for: "0" is not a whole number of seconds greater than 0)"},
    {"trace_of_a_whole_request",
     "trace",
     {"--command", "getDLV2 8"},
     R"(--command: "getDLV2 8" is not the first word of a request, such as getMCPAddress)"},
    {"trace_of_a_malformed_address",
     "trace",
     {"--station", "10.0.0.300"},
     R"(--station: "10.0.0.300" is not an IPv4 address; its four numbers go from 0 to 255, without leading zeros)"},
    {"repair_and_more", "trace", {"--repair", "--summary"}, "--repair cannot be combined with other options or a program"},
    {"repair_and_a_program", "trace", {"--repair", "--", "ls"}, "--repair cannot be combined with other options or a program"},
    {"report_without_a_file", "report", {}, "FILE is required"},
    {"report_with_a_trace_of_no_time",
     "report",
     {"x", "--trace", "0"},
     R"(--trace: "0" is not a whole number of seconds from 1 to 86400)"},
    {"record_without_a_file", "record", {"--for", "5"}, "FILE is required"},
    {"record_without_a_file_before_a_program", "record", {"--", "ls"}, "FILE is required"},
    {"record_with_an_unknown_unit",
     "record",
     {"x", "--max-size", "20T"},
     R"(--max-size: "20T" is not a size; write a number of bytes, or a number and k, M or G, such as 20M)"}};

INSTANTIATE_TEST_SUITE_P(Rows, WrongValue, testing::ValuesIn(kWrongValues), [](const auto &row) { return row.param.name; });

// ---- All subcommands ----

std::set<std::string> allCommands()
{
    std::set<std::string> commands{"agent check", "anonymize", "doctor", "panel show", "record", "report", "trace"};
    for (const FunctionCommand &row : functionCommands()) {
        commands.insert(row.command);
    }
    return commands;
}

class EveryCommand : public testing::TestWithParam<std::string> {};

TEST_P(EveryCommand, has_examples_in_its_help)
{
    Arguments arguments = words(GetParam());
    arguments.emplace_back("--help");
    const Ended ended = kvoctl(arguments);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(ended.out, HasSubstr("Examples:\n  kvoctl " + GetParam()));
}

TEST_P(EveryCommand, refuses_an_unknown_option)
{
    const ScriptedService service({support::replies("ok")});
    Arguments arguments = words(GetParam());
    arguments.emplace_back("--frobnicate");
    const Ended ended = kvoctl(arguments);
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.out, "");
    EXPECT_THAT(ended.err, testing::StartsWith("kvoctl: " + GetParam() + ": "));
    EXPECT_EQ(service.requests(), std::vector<std::string>{});
}

TEST_P(EveryCommand, is_in_the_help_of_its_family)
{
    Arguments family = words(GetParam());
    const std::string name = family.back();
    family.back() = "--help";
    EXPECT_THAT(kvoctl(family).out, HasSubstr("\n  " + name + " "));
}

TEST_P(EveryCommand, is_in_the_manual_with_an_example)
{
    const std::string manual = kvosim_test::contentsOf(MANUAL);
    EXPECT_THAT(manual, HasSubstr("| `" + GetParam()));
    EXPECT_THAT(manual, HasSubstr("`kvoctl " + GetParam()));
}

INSTANTIATE_TEST_SUITE_P(All, EveryCommand, testing::ValuesIn(allCommands()), [](const auto &row) {
    std::string name = row.param;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char byte) { return std::isalnum(byte) == 0; }, '_');
    return name;
});

}  // namespace

}  // namespace kvoctl_test
