// "kvoctl record --capture": the plant is in the recording before the first exchange, and its own requests are not.
#include "tools/kvoctl/trace/traced_service.h"

#include "tools/kvosim/support/temporary_directory.h"

#include "kvosim/plant_file/plant_file.h"
#include "support/scripted_service.h"

#include <filesystem>
#include <fstream>

namespace kvoctl_test {

namespace {

using kvosim_test::contentsOf;
using tools::recording::Recording;

class RecordWithCapture : public testing::Test {
protected:
    Ended record(Arguments arguments)
    {
        arguments.insert(arguments.begin(), {"record", file_, "--capture", "--rate", "max"});
        return kvoctl(arguments);
    }

    const kvosim_test::TemporaryDirectory folder_;
    const std::string file_ = folder_ / "plant.rec";
};

TEST_F(RecordWithCapture, stores_the_plant_of_a_program_before_its_exchanges)
{
    const Service service;
    const std::string plant = kvoctl({"capture", "--rate", "max"}).out;
    const Ended ended = record({"--", KVOCTL_PROGRAM, "address", "mcp", "10.0.0.5", "7"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    const Recording recording = Recording::load(file_);
    EXPECT_EQ(recording.plant(), plant);
    EXPECT_NE(plant.find("\nmcp_address = 5\n"), std::string::npos) << "before the program changed it";
    ASSERT_EQ(recording.size(), 1U) << "the requests of the capture are not recorded";
    const std::string text = contentsOf(file_);
    EXPECT_LT(text.rfind("\nplant "), text.find("\nprocess "));
    EXPECT_EQ(text.find("\nplant "), text.find('\n', text.find("\nstart ") + 1)) << "directly after the start";
}

TEST_F(RecordWithCapture, stores_the_plant_in_a_recording_of_all_programs)
{
    const Service service;
    Tracing tracing({"record", file_, "--capture", "--rate", "max"});
    ASSERT_TRUE(tracing.isAttached()) << tracing.err();
    EXPECT_EQ(kvoctl({"ready"}).status, 0);
    EXPECT_EQ(tracing.end(), 0);
    const Recording recording = Recording::load(file_);
    EXPECT_EQ(kvosim::parsePlant(recording.plant(), "recorded").stations().size(), 30U);
    EXPECT_EQ(exchangesOf(file_).size(), 1U) << "only the program's";
}

TEST_F(RecordWithCapture, gives_the_plant_the_same_replacements_as_the_exchanges)
{
    const Service service;
    const Ended ended = record({"--anonymize", "--json", "--", KVOCTL_PROGRAM, "station", "Milling centre 1"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    const std::string text = contentsOf(file_);
    EXPECT_EQ(text.find("Milling"), std::string::npos);
    EXPECT_EQ(text.find("# "), std::string::npos) << "comments may say anything";
    const Recording recording = Recording::load(file_);
    const kvosim::Plant plant = kvosim::parsePlant(recording.plant(), "recorded");
    const auto asked = std::get<tools::recording::Exchange>(recording.line(0));
    EXPECT_EQ(joined(asked.request), "getExDescByName " + std::string(plant.stations()[0].name) + '\n');
    EXPECT_NE(ended.out.find("\"stations\": 30\n"), std::string::npos) << ended.out;
    // A recording that is anonymized later agrees with itself in the same way.
    const std::string later = folder_ / "later.rec";
    ASSERT_EQ(kvoctl({"anonymize", file_, "--output", later}).status, 0);
    EXPECT_EQ(Recording::load(later).plant(), recording.plant());
}

TEST_F(RecordWithCapture, records_nothing_without_a_service)
{
    const std::string mark = folder_ / "mark";
    const Ended ended = record({"--", "/usr/bin/touch", mark});
    EXPECT_EQ(ended.status, 3);
    EXPECT_NE(ended.err.find(kNoServiceHint), std::string::npos) << ended.err;
    EXPECT_FALSE(std::filesystem::exists(file_));
    EXPECT_FALSE(std::filesystem::exists(mark)) << "the program was not started";
}

TEST_F(RecordWithCapture, records_nothing_if_the_service_stops_answering)
{
    const support::ScriptedService service({support::replies("yes"), support::staysSilent(std::chrono::seconds(5))});
    const Ended ended = record({});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err,
              "kvoctl: record: the service stopped answering at getVersion, so the plant could not be captured and nothing "
              "was recorded (result -1)\n");
    EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(RecordWithCapture, refuses_a_file_before_it_reads_the_plant)
{
    const support::ScriptedService service({support::replies("yes")});
    std::ofstream(file_) << "precious";
    EXPECT_EQ(record({}).status, 2);
    EXPECT_TRUE(service.requests().empty());
    EXPECT_EQ(contentsOf(file_), "precious");
}

TEST_F(RecordWithCapture, refuses_a_plant_that_does_not_fit)
{
    const Service service;
    const Ended ended = record({"--max-size", "2k"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_NE(ended.err.find(" bytes, does not fit: the file has reached its largest size of 2048 bytes"), std::string::npos)
        << ended.err;
    EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(RecordWithCapture, says_that_values_are_missing)
{
    const Service service;
    ASSERT_EQ(kvosim_test::exchange("reboot=0A000005\n"), "ok\n");
    const Ended ended = record({"--", "/bin/true"});
    EXPECT_NE(ended.err.find("kvoctl: record: 1 comment in the captured plant: some values could not be read\n"),
              std::string::npos)
        << ended.err;
}

TEST(Record, takes_a_rate_only_with_capture)
{
    EXPECT_NE(kvoctl({"record", "plant.rec", "--rate", "5"}).err.find("--rate requires --capture"), std::string::npos);
}

}  // namespace

}  // namespace kvoctl_test
