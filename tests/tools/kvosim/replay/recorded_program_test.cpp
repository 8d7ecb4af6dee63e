// Programs that were recorded with the simulator, and then run with the recording: they write the same.
#include "common/recording/recording.h"
#include "support/time_of.h"
#include "tools/kvosim/compare/recordings.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/run_kvosim.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim_test::contentsOf;
using kvosim_test::Exited;
using kvosim_test::runKvosim;
using testing::HasSubstr;

const std::string kKvoctl = KVOCTL_PROGRAM;
const std::string kKvosim = KVOSIM_PROGRAM;

/// Runs a script, first with the simulator and a recording, then with the recording alone.
class RecordedProgram : public testing::Test {
protected:
    /// @p disturbance  runs meanwhile, outside of the recorded program  @p before  runs before it
    void recordOne(const std::string &script, const std::string &disturbance, const std::string &before = "true")
    {
        writeScript(script);
        record(before + "; " + disturbance + " & " + kKvoctl + " record " + file_ + " -- sh " + script_ + "; wait");
    }
    void recordAll(const std::string &script, const std::string &disturbance)
    {
        writeScript(script);
        record(kKvoctl + " record " + file_ + " & recorder=$!; until grep -qs start " + file_ +
               "; do sleep 0.1; done; sleep 0.3; { " + disturbance + "; } & others=$!; sh " + script_ +
               "; wait $others; kill -INT $recorder; wait $recorder");
    }
    Exited replay(const std::string &speed = "1", std::vector<std::string> options = {"--strict"})
    {
        options.insert(options.begin(), {"replay", file_, "--speed", speed});
        options.insert(options.end(), {"--", "sh", script_});
        Exited exited = runKvosim(options);
        replayed_ = output();
        return exited;
    }

    kvosim_test::TemporaryDirectory directory_;
    std::string file_ = directory_ / "plant.rec";
    std::string recorded_;  ///< what the programs have written
    std::string replayed_;

private:
    void writeScript(const std::string &script) const
    {
        std::ofstream(script_) << "cd " + directory_.path().string() + "; rm -f out1 out2; k=" + kKvoctl + "\n" + script + '\n';
    }
    void record(const std::string &script)
    {
        const Exited exited = runKvosim(
            {"run", "--usb-lock-address", "none", "--alive", "0", "--plant", EXAMPLE_PLANT, "--", "sh", "-c", script});
        ASSERT_EQ(exited.status, 0) << exited.err;
        recorded_ = output();
    }
    [[nodiscard]] std::string output() const
    {
        return contentsOf(directory_ / "out1") + "----\n" + contentsOf(directory_ / "out2");
    }

    std::string script_ = directory_ / "script";
};

/// Waits until a file has a line with @p text.
std::string waitFor(const std::string &file, const std::string &text)
{
    return "until grep -qs '" + text + "' " + file + "; do sleep 0.05; done\n";
}

TEST_F(RecordedProgram, asks_and_sets_values)
{
    recordOne("{ $k stations; $k station 10.0.0.5; $k address mcp 10.0.0.5; $k channel-info set 10.0.0.5 'two words'; "
              "$k channel-info get 10.0.0.5; $k touch 10.9.9.9; } > out1 2>&1; true",
              "true");
    ASSERT_THAT(recorded_, HasSubstr("two words"));
    for (const char *speed : {"1", "max"}) {
        const Exited exited = replay(speed);
        EXPECT_EQ(exited.status, 0) << exited.err;
        EXPECT_EQ(replayed_, recorded_);
    }
}

TEST_F(RecordedProgram, receives_usb_events_and_embedded_events)
{
    recordOne("$k usb watch > out1 & usb=$!\n$k events watch > out2 2>/dev/null & events=$!\n" + waitFor("out1", "removed") +
                  waitFor("out2", "F2") + "kill $usb $events; wait",
              "{ sleep 1; " + kKvosim + " usb plug 10.0.0.5; " + kKvosim + " event 'key, F1'; " + kKvosim +
                  " usb unplug 10.0.0.5 usb1; " + kKvosim + " event 'key, F2'; }");
    ASSERT_THAT(recorded_, HasSubstr("F2"));
    const Exited exited = replay();
    EXPECT_EQ(exited.status, 0) << exited.err;
    EXPECT_EQ(replayed_, recorded_);
}

/// Two programs receive the USB events one after the other.
const std::string kTakeover = "$k usb watch > out1 & first=$!\n" + waitFor("out1", "new") +
                              "$k usb watch > out2 & second=$!\n" + waitFor("out2", "removed") + "kill $first $second; wait";
const std::string kTakeoverEvents =
    "{ sleep 1; " + kKvosim + " usb plug 10.0.0.5; sleep 2.5; " + kKvosim + " usb unplug 10.0.0.5 usb1; }";

TEST_F(RecordedProgram, takes_usb_events_over_within_a_trace_of_one_program)
{
    recordOne(kTakeover, kTakeoverEvents);
    ASSERT_THAT(recorded_, HasSubstr("removed"));
    const Exited exited = replay();
    EXPECT_EQ(exited.status, 0) << exited.err;
    EXPECT_EQ(replayed_, recorded_);
}

TEST_F(RecordedProgram, takes_usb_events_over_within_a_trace_of_all_programs)
{
    recordAll(kTakeover, kTakeoverEvents);
    ASSERT_THAT(contentsOf(file_), HasSubstr("suicide"));
    const Exited exited = replay();
    EXPECT_EQ(exited.status, 0) << exited.err << contentsOf(file_);
    EXPECT_EQ(replayed_, recorded_);
}

/// The takeover by a program whose requests are not in the recording. The program ends then, sometimes before it has answered, so
/// its answer is not compared.
TEST_F(RecordedProgram, loses_usb_events_to_a_program_outside)
{
    recordOne("$k usb watch > out1; true", "{ sleep 1; timeout 3 " + kKvoctl + " usb watch > /dev/null; }");
    ASSERT_THAT(contentsOf(file_), HasSubstr("suicide"));
    const Exited exited = replay("1", {});
    EXPECT_EQ(exited.status, 0) << exited.err << contentsOf(file_);
    EXPECT_THAT(exited.err, HasSubstr("all answered as recorded; 1 USB event\n"));
    EXPECT_EQ(replayed_, recorded_);
}

struct FaultRow : kvosim_test::NamedRow {
    std::string fault;  ///< options of "kvosim fault add"
    std::chrono::milliseconds least;
    std::string message;  ///< of the program
};

class RecordedFault : public RecordedProgram, public testing::WithParamInterface<FaultRow> {};

TEST_P(RecordedFault, happens_again)
{
    recordOne("$k version > out1 2> out2; $k version >> out1 2>> out2; true", "true",
              kKvosim + " fault add " + GetParam().fault + " --command getVersion --times 1");
    EXPECT_THAT(recorded_, HasSubstr(GetParam().message));
    const auto time = support::timeOf([&] {
        const Exited exited = replay();
        EXPECT_EQ(exited.status, 0) << exited.err << contentsOf(file_);
    });
    EXPECT_GE(time, GetParam().least);
    EXPECT_EQ(replayed_, recorded_);
}

const std::vector<FaultRow> kFaults = {
    {"silent", "silent", 4s, "kvoctl: version: "},
    {"close", "close", 0s, "kvoctl: version: "},
    {"garbage", "garbage", 0s, "service  "},
    {"split", "split --delay-ms 20", 60ms, "service  "},
    {"delay", "delay --delay-ms 500", 500ms, "service  "},
    {"failed", "failed", 0s, "service  failed"},
};

INSTANTIATE_TEST_SUITE_P(Table, RecordedFault, testing::ValuesIn(kFaults), kvosim_test::kNameOfRow);

}  // namespace
