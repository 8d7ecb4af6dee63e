// The command line of kvosim: exit statuses and messages.
#include "tools/kvosim/program/commands.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/program.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace {

using kvosim_test::exchange;
using kvosim_test::kvosim;
using kvosim_test::Program;
using testing::HasSubstr;
using testing::StartsWith;

// ---- generate ----

TEST(Generate, writes_a_plant_that_can_be_served)
{
    const kvosim_test::TemporaryDirectory directory;
    const std::string file = directory / "plant.toml";
    Program generate(kvosim({"generate", "10000", "--seed", "3"}));
    ASSERT_EQ(generate.wait(), 0);
    std::ofstream(file) << generate.out();
    const Program service(kvosim({"serve", "--plant", file}));
    ASSERT_TRUE(service.hasWritten("kvosim: serving 10000 stations")) << service.err();
    EXPECT_EQ(exchange("getCountElemDL\n"), "10000\n");
    const std::string list = exchange("getDL_ExV2 10000\n");
    EXPECT_THAT(list.substr(0, 18), StartsWith("00002710 0A000001"));
    EXPECT_GT(list.size(), 1'000'000U);
}

// ---- Command lines ----

struct CommandLineRow : kvosim_test::NamedRow {
    std::vector<std::string> arguments;
    int status;
    std::string out;
    std::string err;
};

class CommandLine : public testing::TestWithParam<CommandLineRow> {};

TEST_P(CommandLine, prints_the_expected_output)
{
    Program program(kvosim(GetParam().arguments));
    EXPECT_EQ(program.wait(), GetParam().status);
    EXPECT_THAT(program.out(), HasSubstr(GetParam().out));
    EXPECT_THAT(program.err(), HasSubstr(GetParam().err));
}

const std::vector<CommandLineRow> kCalls = {
    {"without_arguments", {}, 2, "", "Simulate the hardware service of a plant.\nUsage: kvosim [OPTIONS]"},
    {"unknown_subcommand",
     {"server"},
     2,
     "",
     "kvosim: \"server\" is not a command; did you mean \"serve\"?\nSee \"kvosim --help\".\n"},
    {"subcommand_of_another", {"plug"}, 2, "", "\"plug\" is not a command; did you mean \"usb plug\"?\n"},
    {"unknown_option",
     {"serve", "--plant", EXAMPLE_PLANT, "--quiet"},
     2,
     "",
     "kvosim: serve: \"--quiet\" is not an option\nSee \"kvosim serve --help\".\n"},
    {"mistyped_option",
     {"serve", "--plnt", EXAMPLE_PLANT},
     2,
     "",
     "kvosim: serve: \"--plnt\" is not an option; did you mean \"--plant\"?\n"},
    {"unexpected_argument", {"status", "now"}, 2, "", "kvosim: status: unexpected argument \"now\"\n"},
    {"serve_without_plant",
     {"serve"},
     2,
     "",
     "kvosim: serve: give a plant with --plant FILE, or a recording with --replay FILE\n"},
    {"run_without_command", {"run"}, 2, "", "give the command to run after \"--\""},
    {"run_with_empty_command", {"run", "--"}, 2, "", "give the command to run after \"--\""},
    {"run_without_mark",
     {"run", "ls", "-l"},
     2,
     "",
     "kvosim: run: the command to run goes after \"--\": kvosim run -- ls -l\n"},
    {"run_without_mark_after_options",
     {"run", "--verbose", "--plant", "sh", "sh", "-c", "echo $HOME", "it's"},
     2,
     "",
     "\"--\": kvosim run --verbose --plant sh -- sh -c 'echo $HOME' 'it'\\''s'\n"},
    {"run_without_mark_for_help", {"run", "ls", "--help"}, 2, "", "\"--\": kvosim run -- ls --help\n"},
    {"run_with_a_word_before_the_mark", {"run", "fast", "--", "true"}, 2, "", "kvosim: run: unexpected argument \"fast\"\n"},
    {"run_with_a_mistyped_option",
     {"run", "--vrebose", "--", "true"},
     2,
     "",
     "kvosim: run: \"--vrebose\" is not an option; did you mean \"--verbose\"?\n"},
    {"generate_without_count", {"generate"}, 2, "", "COUNT is required"},
    {"generate_too_many", {"generate", "100001"}, 2, "", "not in range"},
    {"generate_negative", {"generate", "--", "-1"}, 2, "", "not in range"},
    {"generate_text", {"generate", "many"}, 2, "", "many"},
    {"version", {"--version"}, 0, "kvosim 0.", ""},
    {"help_command", {"help"}, 0, "Examples:\n  kvosim serve", ""},
    {"help_of_a_command", {"help", "fault", "add"}, 0, "Usage: kvosim fault add [OPTIONS] KIND\n", ""},
    {"help_of_an_unknown_command", {"help", "falt"}, 2, "", "did you mean \"fault\"?\n"},
    {"help_of_run_has_its_command", {"help", "run"}, 0, "Usage: kvosim run [OPTIONS] -- COMMAND [ARGUMENT...]\n", ""},
    {"help_that_wraps",
     {"help", "serve"},
     0,
     "  --registry TEXT             Directory that keeps the registry lists for the\n"
     "                              next start (default: a temporary directory)\n",
     ""},
    {"help", {"--help"}, 0, "Examples:\n  kvosim serve", ""},
    {"serve_help", {"serve", "--help"}, 0, "Examples:\n  kvosim serve", ""},
    {"run_help", {"run", "--help"}, 0, "built-in plant", ""},
    {"run_help_examples", {"run", "--help"}, 0, "Examples:\n  kvosim run -- ", ""},
    {"generate_help", {"generate", "--help"}, 0, "Examples:\n  kvosim generate", ""}};

INSTANTIATE_TEST_SUITE_P(Table, CommandLine, testing::ValuesIn(kCalls), kvosim_test::kNameOfRow);

}  // namespace
