// kvosim replay and kvosim serve --replay: files, messages, reports, exit statuses and signals.
#include "common/json.h"
#include "support/time_of.h"
#include "tools/kvosim/compare/recordings.h"
#include "tools/kvosim/program/commands.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/run_kvosim.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim_test::contentsOf;
using kvosim_test::exchange;
using kvosim_test::Exited;
using kvosim_test::kRecordingHead;
using kvosim_test::kSocket;
using kvosim_test::kvosim;
using kvosim_test::Program;
using kvosim_test::runKvosim;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kAsk = ASK_PROGRAM;
const std::string kVersion = "1.0 ask 1 > \"getVersion\\n\" < \"V7\\n\"\n";
const std::string kAddress = "2.0 ask 1 > \"getMCPAddress=0A000005\\n\" < \"mcpaddr=5\\n\"\n";

class ReplayProgram : public testing::Test {
protected:
    void record(const std::string &lines) const { std::ofstream(file_) << kRecordingHead + lines; }

    /// Replays the recording for a program. @p options come before "--".
    [[nodiscard]] Exited replay(const std::vector<std::string> &command, std::vector<std::string> options = {}) const
    {
        options.insert(options.begin(), {"replay", file_});
        options.emplace_back("--");
        options.insert(options.end(), command.begin(), command.end());
        return runKvosim(options);
    }
    [[nodiscard]] tools::Json reportFile() const { return tools::Json::parse(contentsOf(report_)); }

    kvosim_test::TemporaryDirectory directory_;
    std::string file_ = directory_ / "plant.rec";
    std::string report_ = directory_ / "report.json";
    std::string plant_ = directory_ / "plant.toml";
};

TEST_F(ReplayProgram, reports_one_line_if_all_is_as_recorded)
{
    record(kVersion + kAddress);
    const Exited exited = replay({kAsk, "getVersion", "getMCPAddress=0A000005"});
    EXPECT_EQ(exited.status, 0);
    EXPECT_EQ(exited.out, "V7\nmcpaddr=5\n");
    EXPECT_EQ(exited.err, "kvosim: replay of " + file_ + ": 2 requests, all answered as recorded\n");
}

TEST_F(ReplayProgram, reports_what_was_not_recorded_at_once_and_at_the_end)
{
    record(kVersion + kAddress);
    const Exited exited = replay({kAsk, "getMCPAddress=0A000006", "getMCPAddress=0A000006", "getVersion"});
    EXPECT_EQ(exited.status, 4);
    EXPECT_EQ(exited.out, "failed\nfailed\nV7\n");
    EXPECT_EQ(exited.err,
              "kvosim: not recorded: \"getMCPAddress=0A000006\"\n"
              "kvosim: replay of " +
                  file_ +
                  ": 3 requests, 1 answered as recorded, 2 not answered\n"
                  "kvosim:   not recorded: \"getMCPAddress=0A000006\" (2 times); nearest: \"getMCPAddress=0A000005\" "
                  "(line 5): station 10.0.0.6 instead of 10.0.0.5\n"
                  "kvosim:   never asked: 1 of 2 recorded requests: \"getMCPAddress=0A000005\" (line 5)\n");
}

TEST_F(ReplayProgram, limits_its_messages)
{
    record(kVersion);
    std::vector<std::string> command{kAsk};
    for (int i = 0; i < 300; ++i) {
        command.push_back("unknown" + std::to_string(i));
    }
    const Exited exited = replay(command);
    EXPECT_EQ(exited.status, 4);
    EXPECT_LT(std::count(exited.err.begin(), exited.err.end(), '\n'), 150);
    EXPECT_THAT(exited.err, HasSubstr("and 280 more requests without an answer\n"));
}

TEST_F(ReplayProgram, answers_from_a_plant)
{
    record(kVersion);
    std::ofstream(plant_) << "[[station]]\naddress = \"10.0.0.5\"\nname = \"Lathe\"\nmcp_address = 17\n";
    const Exited exited = replay({kAsk, "getVersion", "getMCPAddress=0A000005"}, {"--plant", plant_});
    EXPECT_EQ(exited.status, 0);
    EXPECT_EQ(exited.out, "V7\nmcpaddr=17\n");
    EXPECT_EQ(exited.err, "kvosim: replay of " + file_ + ": 2 requests, 1 answered as recorded, 1 from the plant\n");
}

struct StatusRow : kvosim_test::NamedRow {
    std::vector<std::string> options;
    std::vector<std::string> command;
    int status;
};

class ReplayStatus : public ReplayProgram, public testing::WithParamInterface<StatusRow> {};

TEST_P(ReplayStatus, is_that_of_the_program_unless_it_succeeds_against_the_recording)
{
    record(kVersion);
    EXPECT_EQ(replay(GetParam().command, GetParam().options).status, GetParam().status);
}

const std::vector<StatusRow> kStatuses = {
    {"success", {}, {kAsk, "getVersion"}, 0},
    {"nothing_asked", {}, {"true"}, 0},
    {"failure", {}, {"sh", "-c", "exit 42"}, 42},
    {"signal", {}, {"sh", "-c", "kill -TERM $$"}, 143},
    {"not_found", {}, {"no-such-command-here"}, 127},
    {"not_executable", {}, {"/etc/passwd"}, 126},
    {"not_recorded", {}, {kAsk, "getMCPAddress=0A000005"}, 4},
    {"not_recorded_and_failure", {}, {"sh", "-c", kAsk + " getMCPAddress=0A000005; exit 3"}, 3},
    {"repeated", {}, {kAsk, "getVersion", "getVersion"}, 0},
    {"strict", {"--strict"}, {kAsk, "getVersion"}, 0},
    {"strict_and_never_asked", {"--strict"}, {"true"}, 4},
    {"strict_and_asked_too_often", {"--strict"}, {kAsk, "getVersion", "getVersion"}, 4},
    {"strict_and_failure", {"--strict"}, {"false"}, 1},
};

INSTANTIATE_TEST_SUITE_P(Table, ReplayStatus, testing::ValuesIn(kStatuses), kvosim_test::kNameOfRow);

TEST_F(ReplayProgram, says_that_strict_is_not_met)
{
    record(kVersion);
    EXPECT_THAT(replay({kAsk, "getVersion", "getVersion"}, {"--strict"}).err,
                testing::AllOf(StartsWith("kvosim: asked more often than recorded: \"getVersion\"\n"),
                               EndsWith("kvosim:   asked more often than recorded: \"getVersion\"\n"
                                        "kvosim:   --strict is not met\n")));
}

// ---- Reports for programs ----

TEST_F(ReplayProgram, writes_its_report_as_json)
{
    record(kVersion);
    const Exited exited = replay({kAsk, "getVersion", "reboot"}, {"--json"});
    EXPECT_EQ(exited.status, 4);
    EXPECT_EQ(exited.out, "V7\nfailed\n");
    const tools::Json report = tools::Json::parse(exited.err.substr(exited.err.find('{')));
    EXPECT_EQ(report["file"], file_);
    EXPECT_EQ(report["good"], false);
    EXPECT_EQ(report["not_recorded"][0]["request"], "reboot");
}

TEST_F(ReplayProgram, writes_its_report_to_a_file)
{
    record(kVersion);
    std::ofstream(report_) << "an older report";
    const Exited exited = replay({kAsk, "getVersion", std::string("\xFF")}, {"--report", report_});
    EXPECT_EQ(exited.status, 4);
    EXPECT_THAT(exited.err, HasSubstr("kvosim: replay of "));
    EXPECT_EQ(reportFile()["answered_as_recorded"], 1);
    EXPECT_EQ(reportFile()["not_recorded"][0]["request"], "\xEF\xBF\xBD") << "not UTF-8";
}

TEST_F(ReplayProgram, keeps_the_status_of_its_program_if_its_report_is_lost)
{
    record(kVersion);
    const std::string folder = directory_ / "reports";
    for (const auto &[status, expected] : {std::pair(7, 7), std::pair(0, 1)}) {
        std::filesystem::create_directory(folder);
        const Exited exited =
            replay({"sh", "-c", "rm -r \"$0\"; exit " + std::to_string(status), folder}, {"--report", folder + "/report.json"});
        EXPECT_EQ(exited.status, expected);
        EXPECT_THAT(exited.err, HasSubstr(": 0 requests\n")) << "the text is not lost";
        EXPECT_THAT(exited.err, HasSubstr("kvosim: cannot write \"" + folder + "/report.json\""));
    }
}

TEST_F(ReplayProgram, starts_nothing_if_the_report_cannot_be_written)
{
    record(kVersion);
    const Exited exited = replay({"echo", "started"}, {"--report", "/no/such/folder/report.json"});
    EXPECT_EQ(exited.status, 1);
    EXPECT_EQ(exited.out, "");
    EXPECT_THAT(exited.err, HasSubstr("/no/such/folder/report.json"));
}

// ---- Files ----

struct FileRow : kvosim_test::NamedRow {
    std::string content;
    std::string message;  ///< after the path
};

class InvalidRecording : public ReplayProgram, public testing::WithParamInterface<FileRow> {};

TEST_P(InvalidRecording, is_refused_before_anything_starts)
{
    std::ofstream(file_) << GetParam().content;
    const Exited exited = replay({"echo", "started"});
    EXPECT_EQ(exited.status, 2);
    EXPECT_EQ(exited.out, "");
    EXPECT_THAT(exited.err, StartsWith("kvosim: " + file_ + GetParam().message));
    const Exited served = runKvosim({"serve", "--replay", file_});
    EXPECT_EQ(served.status, 2);
    EXPECT_EQ(served.err, exited.err);
}

const std::vector<FileRow> kInvalid = {
    {"empty", "", ":1: "},
    {"another_file", "[[station]]\n", ":1: expected \"kvo-recording 1\" as the first line"},
    {"newer_version", "kvo-recording 2\nsomething new\n", ":1: version 2 of the format is newer than this program"},
    {"cut", kRecordingHead + kVersion + "2.0 ask 1 > \"getVer", ":5: the quoted text"},
    {"damaged", kRecordingHead + "1.0 ask 1 > \"getVersion\\n\" ? \"V7\\n\"\n" + kAddress, ":4: expected \"<\""},
    {"unknown_program", kRecordingHead + "1.0 ask 9 > \"getVersion\\n\" < \"V7\\n\"\n", ":4: no \"process 9\""},
    {"invalid_plant", kRecordingHead + kvosim_test::plantLines("[[station]]\naddress = 5\n"), " (plant):2: "},
};

INSTANTIATE_TEST_SUITE_P(Table, InvalidRecording, testing::ValuesIn(kInvalid), kvosim_test::kNameOfRow);

TEST_F(ReplayProgram, does_not_find_a_missing_recording)
{
    const Exited exited = replay({"echo", "started"});
    EXPECT_EQ(exited.status, 2);
    EXPECT_EQ(exited.err, "kvosim: " + file_ + ": No such file or directory\n");
}

TEST_F(ReplayProgram, says_that_a_recording_has_nothing)
{
    record("1.0 note \"nothing happened\"\n");
    const Exited exited = replay({"true"});
    EXPECT_EQ(exited.status, 0);
    EXPECT_EQ(exited.err, "kvosim: " + file_ + ": the recording contains no requests and no events\n" + "kvosim: replay of " +
                              file_ + ": 0 requests\n");
}

// ---- Faults ----

TEST_F(ReplayProgram, repeats_a_silence_until_the_program_gives_up)
{
    record("1.0 ask 1 > \"getVersion\\n\" < +4.0 left\n");
    const auto time = support::timeOf([&] {
        const Exited exited = replay({"timeout", "0.5", kAsk, "getVersion"}, {"--speed", "max"});
        EXPECT_EQ(exited.status, 124);
        EXPECT_EQ(exited.out, "");
        EXPECT_THAT(exited.err, HasSubstr("1 request answered as recorded"));
    });
    EXPECT_GE(time, 500ms);
}

TEST_F(ReplayProgram, leaves_pauses_out_at_the_highest_speed)
{
    record("1.0 ask 1 > \"getVersion\\n\" < +30.0 \"V\" +30.0 \"7\\n\" +30.0 closed\n");
    EXPECT_LT(support::timeOf([&] { EXPECT_EQ(replay({kAsk, "getVersion"}, {"--speed", "max"}).out, "V7\n"); }), 10s);
}

// ---- Places ----

TEST_F(ReplayProgram, serves_only_its_program)
{
    record(kVersion);
    const Exited exited = replay({"ls", "/tmp/kvo_hws"});
    EXPECT_EQ(exited.out, "cmd_sock\nevent_sock\n");
    EXPECT_FALSE(std::filesystem::exists(kSocket));
}

TEST_F(ReplayProgram, uses_the_folder_of_the_machine_if_it_is_shared)
{
    record(kVersion);
    const Exited exited = replay({"sh", "-c", "readlink /proc/self/ns/mnt; " + kAsk + " getVersion"}, {"--shared"});
    EXPECT_EQ(exited.status, 0) << exited.err;
    EXPECT_EQ(exited.out, std::filesystem::read_symlink("/proc/self/ns/mnt").string() + "\nV7\n");
    EXPECT_FALSE(std::filesystem::exists(kSocket));
}

TEST_F(ReplayProgram, refuses_to_serve_where_a_service_runs)
{
    record(kVersion);
    const Program first(kvosim({"replay", file_}));
    ASSERT_TRUE(first.hasWritten("serving"));
    const Exited second = runKvosim({"replay", file_});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.err, HasSubstr("already"));
}

// ---- Serving ----

class ServedReplay : public ReplayProgram, public testing::WithParamInterface<bool> {
protected:
    [[nodiscard]] std::vector<std::string> command(const std::vector<std::string> &options = {}) const
    {
        std::vector<std::string> words =
            GetParam() ? std::vector<std::string>{"serve", "--replay", file_} : std::vector<std::string>{"replay", file_};
        words.insert(words.end(), options.begin(), options.end());
        return kvosim(words);
    }
};

TEST_P(ServedReplay, answers_until_a_signal)
{
    record(kVersion + kAddress);
    Program service(command({"--report", report_}));
    ASSERT_TRUE(service.hasWritten("kvosim: serving 2 recorded requests at /tmp/kvo_hws/cmd_sock\n")) << service.err();
    EXPECT_EQ(exchange("getVersion\n"), "V7\n");
    EXPECT_EQ(exchange("killDaemon\n"), "failed\n");
    EXPECT_EQ(exchange("getVersion\n"), "V7\n");
    service.signal(SIGINT);
    EXPECT_EQ(service.wait(), 4);
    EXPECT_EQ(reportFile()["answered_again"], 1);
    EXPECT_THAT(service.err(), HasSubstr("kvosim:   not recorded: \"killDaemon\"\n"));
    EXPECT_FALSE(std::filesystem::exists(kSocket));
}

TEST_P(ServedReplay, ends_with_0_if_every_request_was_recorded)
{
    record(kVersion + "2.0 ask 1 > \"killDaemon\\n\" < \"ok\\n\"\n");
    Program service(command());
    ASSERT_TRUE(service.hasWritten("serving"));
    EXPECT_EQ(exchange("killDaemon\n"), "ok\n");
    EXPECT_EQ(exchange("getVersion\n"), "V7\n");
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), 0);
}

TEST_P(ServedReplay, ends_with_4_if_strict_is_not_met)
{
    record(kVersion);
    Program service(command({"--strict"}));
    ASSERT_TRUE(service.hasWritten("serving"));
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), 4);
}

INSTANTIATE_TEST_SUITE_P(Commands, ServedReplay, testing::Bool(),
                         [](const auto &row) { return row.param ? "serve" : "replay"; });

TEST_F(ReplayProgram, ends_with_standard_input)
{
    record(kVersion);
    const Exited exited = [&] {
        Program service({"sh", "-c", "true | " KVOSIM_PROGRAM " serve --until-input-ends --replay " + file_});
        const int status = service.wait();
        return Exited{status, service.out(), service.err()};
    }();
    EXPECT_EQ(exited.status, 0);
    EXPECT_THAT(exited.out, HasSubstr("serving 1 recorded requests"));
}

TEST_F(ReplayProgram, serves_with_a_plant_and_a_file_mode)
{
    record(kVersion);
    std::ofstream(plant_) << "[[station]]\naddress = \"10.0.0.5\"\nname = \"Lathe\"\nmcp_address = 17\n";
    Program service(kvosim({"serve", "--replay", file_, "--plant", plant_, "--socket-mode", "0660"}));
    ASSERT_TRUE(service.hasWritten("serving"));
    EXPECT_EQ(exchange("getMCPAddress=0A000005\n"), "mcpaddr=17\n");
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(kSocket).permissions()), 0660U);
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), 0);
}

TEST_F(ReplayProgram, logs_each_exchange_if_it_is_verbose)
{
    record(kVersion);
    const std::string log = replay({kAsk, "getVersion", "getVersion", "reboot"}, {"--verbose"}).err;
    EXPECT_THAT(log, HasSubstr(" getVersion -> V7\\x0A (line 4)\n"));
    EXPECT_THAT(log, HasSubstr(" getVersion -> V7\\x0A (line 4, again)\n"));
    EXPECT_THAT(log, HasSubstr(" reboot -> failed\n"));
}

}  // namespace
