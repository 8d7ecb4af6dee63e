// The completions that kvosim prints for shells.
#include "tools/kvosim/support/program.h"
#include "tools/kvosim/support/run_kvosim.h"
#include "tools/kvosim/support/running_service.h"

#include <gmock/gmock.h>

namespace {

using kvosim_test::Exited;
using kvosim_test::runKvosim;
using kvosim_test::RunningService;
using testing::HasSubstr;
using testing::Not;

std::string complete(std::vector<std::string> words)
{
    words.insert(words.begin(), {"complete", "--"});
    const Exited ended = runKvosim(words);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    return ended.out;
}

TEST(Completion, offers_stations_without_a_request_to_the_service)
{
    const RunningService service;
    EXPECT_THAT(complete({"station", "10.0.0.5"}), "words\n10.0.0.5\tLathe 1\n");
    EXPECT_THAT(complete({"usb", "plug", "Lat"}), "words\nLathe 1\t10.0.0.5\n");
    EXPECT_THAT(runKvosim({"status", "--json"}).out, HasSubstr("\"exchanges\":0"))
        << "completion must not make requests, which faults would count";
}

TEST(Completion, offers_devices)
{
    const RunningService service;
    ASSERT_EQ(runKvosim({"usb", "plug", "10.0.0.5", "--ident2", "stick"}).status, 0);
    EXPECT_THAT(complete({"usb", "unplug", "10.0.0.5", "st"}), HasSubstr("\nstick\t10.0.0.5, Memory stick\n"));
}

TEST(Completion, offers_nothing_without_a_simulator) { EXPECT_THAT(complete({"station", ""}), "words\n"); }

TEST(Completion, offers_words_keys_and_keywords)
{
    EXPECT_THAT(complete({"fault", "add", "s"}), "words\nsplit\t\nsilent\t\n");
    EXPECT_THAT(complete({"station", "x", "--set", "a=1", "mcp"}), "words\nmcp_address=\t\n");
    EXPECT_THAT(complete({"fault", "add", "delay", "--command", "getVer"}), "words\ngetVersion\t\n");
}

TEST(Completion, offers_files_directories_and_commands)
{
    EXPECT_EQ(complete({"serve", "--plant", ""}), "files\n");
    EXPECT_EQ(complete({"serve", "--registry", ""}), "directories\n");
    EXPECT_EQ(complete({"run", "--verbose", "--", ""}), "command\n");
    EXPECT_EQ(complete({"run", "--", "kvosim", "--"}), "command\n");
    EXPECT_THAT(complete({"run", ""}), HasSubstr("\n--plant\t")) << "only an option can follow";
    EXPECT_THAT(complete({"run", "--verbose", "--"}), Not(HasSubstr("--verbose")));
}

}  // namespace
