// The command lines of kvosim replay and kvosim serve --replay that are mistakes.
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/run_kvosim.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace {

using kvosim_test::Exited;
using kvosim_test::runKvosim;
using testing::StartsWith;

struct UsageRow : kvosim_test::NamedRow {
    std::vector<std::string> arguments;
    std::string message;
};

class ReplayUsage : public testing::TestWithParam<UsageRow> {};

TEST_P(ReplayUsage, is_explained)
{
    const Exited exited = runKvosim(GetParam().arguments);
    EXPECT_EQ(exited.status, 2);
    EXPECT_EQ(exited.out, "");
    EXPECT_THAT(exited.err, StartsWith(GetParam().message));
}

const std::vector<UsageRow> kUsages = {
    {"no_file", {"replay"}, "kvosim: replay: FILE is required\n"},
    {"no_mark", {"replay", "a.rec", "ls"}, "kvosim: replay: the command to run goes after \"--\": kvosim replay a.rec -- ls\n"},
    {"no_command", {"replay", "a.rec", "--"}, "kvosim replay: give the command to run after \"--\""},
    {"speed",
     {"replay", "a.rec", "--speed", "fast"},
     "kvosim: replay: --speed: write a factor from 0.001 to 1000000, or max\n"},
    {"shared_without_a_command", {"replay", "a.rec", "--shared"}, "kvosim: replay: --shared: needs a command after \"--\"\n"},
    {"option_of_a_plant",
     {"serve", "--replay", "a.rec", "--alive", "3"},
     "kvosim: serve: --alive: not possible with --replay\n"},
    {"option_of_a_replay", {"serve", "--plant", "a.toml", "--strict"}, "kvosim: serve: --strict: needs --replay\n"},
    {"option_of_a_plant_in_replay", {"replay", "a.rec", "--remote", "3"}, "kvosim: replay: \"--remote\" is not an option"},
};

INSTANTIATE_TEST_SUITE_P(Table, ReplayUsage, testing::ValuesIn(kUsages), kvosim_test::kNameOfRow);

}  // namespace
