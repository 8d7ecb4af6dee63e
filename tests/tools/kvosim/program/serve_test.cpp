// kvosim serve: its start, its log, and that it removes its files.
#include "tools/kvosim/program/commands.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/program.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <signal.h>
#include <string>
#include <vector>

namespace {

using kvosim_test::Client;
using kvosim_test::exchange;
using kvosim_test::kReady;
using kvosim_test::kSocket;
using kvosim_test::kvosim;
using kvosim_test::Program;
using kvosim_test::serve;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST(Serve, ends_with_its_input_if_the_option_requests_it)
{
    const kvosim_test::TemporaryDirectory directory;
    const std::string end = directory / "end";
    std::vector<std::string> pipeline{"sh", "-c",
                                      "{ echo ignored; for i in $(seq 900); do [ -e '" + end +
                                          "' ] && break; sleep 0.02; done; } | \"$0\" \"$@\""};
    const std::vector<std::string> words = serve();
    pipeline.insert(pipeline.end(), words.begin(), words.end());
    pipeline.emplace_back("--until-input-ends");
    Program service(pipeline);
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    EXPECT_EQ(exchange("getVersion\n"), "V04.07.01.12\n");
    std::ofstream{end};
    EXPECT_EQ(service.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(kSocket));
    EXPECT_THAT(service.temporaryFiles(), IsEmpty());
}

TEST(Serve, refuses_to_wait_for_the_end_of_a_file)
{
    std::vector<std::string> words{"sh", "-c", "exec \"$0\" \"$@\" </dev/null"};
    const std::vector<std::string> serving = serve();
    words.insert(words.end(), serving.begin(), serving.end());
    words.emplace_back("--until-input-ends");
    Program service(words);
    EXPECT_EQ(service.wait(), 2);
    EXPECT_EQ(service.err(),
              "kvosim: --until-input-ends: standard input is not a pipe, socket or terminal, so its end cannot be detected\n");
    EXPECT_FALSE(std::filesystem::exists(kSocket));
}

TEST(Serve, reports_that_it_is_ready_and_answers)
{
    const Program service(serve());
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    EXPECT_EQ(exchange("getVersion\n"), "V04.07.01.12\n");
    EXPECT_EQ(exchange("getCountElemDL\n"), "30\n");
}

class ServeEndsOn : public testing::TestWithParam<int> {};

TEST_P(ServeEndsOn, signal_and_removes_its_files)
{
    Program service(serve());
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    EXPECT_FALSE(service.temporaryFiles().empty());
    const Client half;
    half.send("getVer");
    service.signal(GetParam());
    EXPECT_EQ(service.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(kSocket));
    EXPECT_THAT(service.temporaryFiles(), IsEmpty());
    EXPECT_EQ(service.err(), "");
}

INSTANTIATE_TEST_SUITE_P(Signals, ServeEndsOn, testing::Values(SIGTERM, SIGINT),
                         [](const auto &row) { return row.param == SIGTERM ? "term" : "int"; });

TEST(Serve, ends_on_kill_daemon)
{
    Program service(serve());
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    EXPECT_EQ(exchange("killDaemon\n"), "ok\n");
    EXPECT_FALSE(std::filesystem::exists(kSocket));
    EXPECT_EQ(service.wait(), 0);
    EXPECT_THAT(service.temporaryFiles(), IsEmpty());
}

TEST(Serve, refuses_to_start_while_another_service_runs)
{
    const Program first(serve());
    ASSERT_TRUE(first.hasWritten(kReady)) << first.err();
    Program second(serve());
    EXPECT_EQ(second.wait(), 1);
    EXPECT_THAT(second.err(), HasSubstr("kvosim: a service is already running at /tmp/kvo_hws/cmd_sock"));
    EXPECT_THAT(second.temporaryFiles(), IsEmpty());
    EXPECT_EQ(exchange("getCountElemDL\n"), "30\n");
}

TEST(Serve, takes_over_the_socket_of_a_killed_service)
{
    {
        const Program killed(serve());
        ASSERT_TRUE(killed.hasWritten(kReady)) << killed.err();
    }
    ASSERT_TRUE(std::filesystem::exists(kSocket));
    const Program service(serve());
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    EXPECT_EQ(exchange("getCountElemDL\n"), "30\n");
}

TEST(Serve, can_make_sockets_accessible_only_to_its_user)
{
    const Program service(serve({"--socket-mode", "0600"}));
    ASSERT_TRUE(service.hasWritten(kReady));
    EXPECT_EQ(std::filesystem::status("/tmp/kvo_hws/cmd_sock").permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    Program wrong(serve({"--socket-mode", "0888"}));
    EXPECT_EQ(wrong.wait(), 2);
    EXPECT_THAT(wrong.err(), HasSubstr("write an octal number such as 0600, 0660 or 0666"));
}

TEST(Serve, keeps_its_registry_between_starts)
{
    const kvosim_test::TemporaryDirectory registry;
    for (int start = 0; start < 2; ++start) {
        Program service(serve({"--registry", registry.path().string()}));
        ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
        EXPECT_EQ(exchange("getregistrypath\n"), registry.path().string() + "/\n");
        service.signal(SIGTERM);
        EXPECT_EQ(service.wait(), 0);
    }
    const std::string current = kvosim_test::contentsOf(registry / "kvo_hws/currkvos.reg");
    EXPECT_THAT(current, StartsWith("\"Milling centre 1\" 10.0.0.5 1024x768:16\n"));
    EXPECT_EQ(kvosim_test::contentsOf(registry / "kvo_hws/prevkvos.reg"), current);
}

TEST(Serve, logs_each_exchange_when_verbose)
{
    Program service(serve({"--verbose"}));
    ASSERT_TRUE(service.hasWritten(kReady)) << service.err();
    exchange("getVersion\n");
    exchange("x\x01y\n");
    const std::string list = exchange("getDLV2 99\n");
    service.signal(SIGTERM);
    service.wait();
    EXPECT_THAT(service.err(), ContainsRegex("^[0-9:]{8}\\.[0-9]{3} getVersion -> V04.07.01.12\n"));
    EXPECT_THAT(service.err(), HasSubstr(" x\\x01y -> failed\n"));
    EXPECT_THAT(service.err(), HasSubstr(" getDLV2 99 -> 0000001E "));
    EXPECT_THAT(service.err(), HasSubstr("... (" + std::to_string(list.size() - 1) + " bytes)\n"));
}

TEST(Serve, reports_a_mistake_in_the_plant_file)
{
    const kvosim_test::TemporaryDirectory directory;
    const std::string file = directory / "plant.toml";
    std::ofstream(file) << "[[station]]\nadress = \"10.0.0.5\"\n";
    Program service(kvosim({"serve", "--plant", file}));
    EXPECT_EQ(service.wait(), 2);
    EXPECT_THAT(service.err(), StartsWith("kvosim: " + file + ":2: station.adress: unknown key; known keys: address"));
    EXPECT_EQ(service.out(), "");
}

TEST(Serve, says_that_its_registry_cannot_be_used)
{
    Program service(serve({"--registry", "/proc/nowhere"}));
    EXPECT_EQ(service.wait(), 1);
    EXPECT_THAT(service.err(), HasSubstr("/proc/nowhere"));
    EXPECT_FALSE(std::filesystem::exists(kSocket));
}

}  // namespace
