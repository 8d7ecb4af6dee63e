// "kvoctl capture": what it asks, the file that it writes, and a service that does not answer.
#include "tools/kvoctl/support/kvoctl.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/running_service.h"
#include "tools/kvosim/support/temporary_directory.h"

#include "common/recording/anonymizer.h"
#include "support/scripted_service.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kvoctl_test {

namespace {

using namespace std::chrono_literals;
using kvosim_test::contentsOf;
using kvosim_test::exchange;
using kvosim_test::RunningService;
using support::ScriptedService;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Clock = std::chrono::steady_clock;

Ended capture(const Arguments &arguments = {})
{
    Arguments all{"capture", "--rate", "max"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return kvoctl(all);
}

// ---- What is asked ----

/// A service with one station that refuses everything else.
std::string onlyStation(const std::string &request)
{
    if (request.starts_with("getCountElemDL")) {
        return "1";
    }
    if (request.starts_with("getDL_ExV2") || request.starts_with("getExDescByIP")) {
        const std::string station = "0A000005 00000001 00000002 00000003 00000007 Lathe 1 0000000B 0000000C 0000000D 0000000E "
                                    "0000000F 00000010 00000011 ";
        return request.starts_with("getEx") ? station : "00000001 " + station;
    }
    return request == "isInitComplete" ? "yes" : "failed";
}

TEST(Capture, asks_for_everything_that_the_page_of_a_station_shows_and_changes_nothing)
{
    ScriptedService page({support::answersWith(onlyStation)});
    kvoctl({"panel", "show", "10.0.0.5"});
    std::vector<std::string> shown = page.requests();
    ScriptedService service({support::answersWith(onlyStation)});
    EXPECT_EQ(capture().status, 0);
    std::vector<std::string> asked = service.requests();
    for (const std::string &request : shown) {
        // The reply of getCurServer says whether the viewer is active, and the list contains the descriptions.
        if (!request.starts_with("isViewerActive") && !request.starts_with("getExDesc")) {
            EXPECT_THAT(asked, testing::Contains(request));
        }
    }
    for (const std::string &request : asked) {
        EXPECT_TRUE(request.starts_with("get") || request.starts_with("is") || request.starts_with("show")) << request;
    }
}

TEST(Capture, keeps_its_pace)
{
    ScriptedService service({support::answersWith(onlyStation)});
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(kvoctl({"capture", "--rate", "50"}).status, 0);
    const std::size_t requests = service.requests().size();
    EXPECT_GT(requests, 30U);
    EXPECT_GE(Clock::now() - start, (requests - 2) * 1000ms / 50) << "the list takes two requests at once";
}

TEST(Capture, accepts_only_rates_that_have_a_meaning)
{
    for (const char *rate : {"-1", "0", "x", "1.5", "100001", ""}) {
        const Ended refused = kvoctl({"capture", "--rate", rate});
        EXPECT_EQ(refused.status, 2) << rate;
        EXPECT_THAT(refused.err, HasSubstr("is not a number of requests per second from 1 to 100000, or \"max\"")) << rate;
    }
}

TEST(Capture, reads_the_registry_without_its_lock)
{
    const RunningService service;
    ASSERT_EQ(exchange("lockKVORegData\n"), "ok\n");
    EXPECT_THAT(capture().out, HasSubstr("[[registry.previous]]\naddress = \"10.0.0.4\"\nname = \"Gone\"\nattr1 = 4\n"));
    EXPECT_EQ(exchange("lockKVORegData\n"), "busy\n");
}

TEST(Capture, says_why_the_registry_cannot_be_read)
{
    const std::pair<const char *, const char *> rows[] = {
        {"/nonexistent/", "not read: the service's file: No such file or directory"},
        {"here/", "not read: unknown reply \"here/\""},
        {"failed", "not read: the service refused it (failed)"}};
    for (const auto &[path, reason] : rows) {
        ScriptedService service({support::answersWith(
            [path = path](const std::string &request) { return request == "getregistrypath" ? path : onlyStation(request); })});
        EXPECT_THAT(capture().out, HasSubstr(std::string("\n# registry.previous: ") + reason + "\n")) << path;
    }
}

TEST(Capture, has_a_comment_for_a_station_that_is_rebooting)
{
    const RunningService service("[[station]]\naddress = \"10.0.0.5\"\nname = \"A\"\nreboot_time_ms = 60000\n");
    ASSERT_EQ(exchange("reboot=0A000005\n"), "ok\n");
    const Ended ended = capture();
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.out,
                testing::EndsWith("\n# other keys: not read: the service refuses requests about this station, which may be "
                                  "rebooting\n"));
}

// ---- The file ----

class CaptureToFile : public testing::Test {
protected:
    const kvosim_test::TemporaryDirectory folder_;
    const std::string file_ = folder_ / "plant.toml";
};

TEST_F(CaptureToFile, writes_a_file_that_others_cannot_read)
{
    const RunningService service(kvosim::kBuiltInPlant);
    const Ended ended = capture({file_});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, '"' + file_ + "\" has 3 stations\n");
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(contentsOf(file_), capture({"-"}).out);
    struct stat status {};
    ASSERT_EQ(stat(file_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(CaptureToFile, reports_what_could_not_be_read)
{
    const RunningService service(std::string(kvosim::kBuiltInPlant) +
                                 "[[faults]]\nkind = \"failed\"\ncommand = \"getKVOIndex\"\ntimes = 1\n"
                                 "[[faults]]\nkind = \"close\"\ncommand = \"getUsbLock\"\nafter = 1\ntimes = 1\n");
    const Ended ended = capture({file_, "--json"});
    EXPECT_EQ(ended.status, 0);
    const Json expected = {
        {"file", file_},
        {"stations", 3},
        {"not_read",
         {{{"station", "10.0.0.5"}, {"key", "kvo_index"}, {"reason", "not read: the service refused it (failed)"}},
          {{"station", "10.0.0.6"},
           {"key", "usb_lock"},
           {"reason", "not read: the service closed the connection without a complete reply"}}}},
        {"stopped", nullptr}};
    EXPECT_EQ(ended.document(), expected);
    EXPECT_THAT(contentsOf(file_), HasSubstr("\n# kvo_index: not read: the service refused it (failed)\ndck_enable = 0\n"));
    EXPECT_THAT(capture({file_, "--force"}).out, testing::EndsWith("\" has 3 stations\n")) << "the faults are over";
}

TEST_F(CaptureToFile, replaces_a_file_only_with_force)
{
    ScriptedService service({support::answersWith(onlyStation)});
    std::ofstream(file_) << "precious";
    const Ended refused = capture({file_});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err,
                StartsWith("kvoctl: capture: \"" + file_ + "\" exists; choose another name, or replace it with --force"));
    EXPECT_TRUE(service.requests().empty()) << "refused before the plant is read";
    EXPECT_EQ(contentsOf(file_), "precious");
    EXPECT_EQ(capture({file_, "--force"}).status, 0);
    EXPECT_THAT(contentsOf(file_), HasSubstr("name = \"Lathe 1\""));
}

TEST_F(CaptureToFile, refuses_a_file_that_cannot_be_created_before_the_plant_is_read)
{
    ScriptedService service({support::answersWith(onlyStation)});
    const Ended refused = capture({folder_ / "none/plant.toml"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("No such file or directory"));
    EXPECT_TRUE(service.requests().empty());
}

TEST(Capture, refuses_options_that_need_a_file)
{
    for (const char *option : {"--json", "--force"}) {
        const Ended refused = kvoctl({"capture", option});
        EXPECT_EQ(refused.status, 2);
        EXPECT_THAT(refused.err + refused.out, HasSubstr(std::string(option) + " needs a FILE"));
    }
}

TEST(Capture, reports_a_full_disk)
{
    std::string manyStations;  // more than a buffer of standard output
    for (int i = 1; i <= 20; ++i) {
        const std::string number = std::to_string(i);
        manyStations += "[[station]]\naddress = \"10.0.0." + number + "\"\nname = \"A" + number + "\"\n";
    }
    for (const std::string &plant : {std::string(kvosim::kBuiltInPlant), manyStations}) {
        const RunningService service(plant);
        const Ended ended = kvoctl({"capture", "--rate", "max"}, {.outputFile = "/dev/full"});
        EXPECT_EQ(ended.status, 5);
        EXPECT_EQ(ended.err, "kvoctl: cannot write to standard output: No space left on device\n");
    }
}

TEST_F(CaptureToFile, leaves_no_half_file_on_a_full_file_system)
{
    const RunningService service(contentsOf(EXAMPLE_PLANT));
    const std::string small = folder_ / "small";
    std::filesystem::create_directory(small);
    if (mount("tmpfs", small.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "size=8k") != 0) {
        GTEST_SKIP() << "skipped: no tmpfs at " << small << ": " << std::strerror(errno);
    }
    const Ended ended = capture({small + "/plant.toml"});
    EXPECT_EQ(ended.status, 5);
    EXPECT_EQ(ended.err, "kvoctl: cannot write \"" + small + "/plant.toml\": No space left on device\n");
    EXPECT_TRUE(std::filesystem::is_empty(small));
    umount2(small.c_str(), MNT_DETACH);
}

TEST(Capture, replaces_names_addresses_and_texts_with_anonymize)
{
    const RunningService service(contentsOf(EXAMPLE_PLANT));
    const std::string anonymized = capture({"--anonymize"}).out;
    EXPECT_EQ(anonymized, tools::recording::Anonymizer().anonymizePlant(capture().out));
    EXPECT_THAT(anonymized, Not(HasSubstr("Milling")));
    EXPECT_EQ(kvosim::parsePlant(anonymized, "anonymized").stations().size(), 30U);
}

TEST(Capture, shows_its_progress_only_on_a_terminal)
{
    const RunningService service(kvosim::kBuiltInPlant);
    const Arguments slowly{"capture", "--rate", "90"};
    const Ended ended =
        kvoctl(slowly, {.terminal = 120, .environment = {"LC_ALL=C.UTF-8", "TERM=xterm"}, .errorsToTerminal = true});
    EXPECT_THAT(ended.out, HasSubstr("kvoctl: capture: reading the plant: 1 of 3 stations"));
    EXPECT_EQ(kvoctl(slowly).err, "");
}

// ---- A service that does not answer, or stops ----

TEST_F(CaptureToFile, keeps_what_was_read_before_the_service_fell_silent)
{
    const RunningService service(std::string(kvosim::kBuiltInPlant) +
                                 "[[faults]]\nkind = \"silent\"\ncommand = \"getKVOIndex\"\nafter = 1\n");
    const Clock::time_point start = Clock::now();
    const Ended ended = capture({file_});
    EXPECT_LT(Clock::now() - start, 8s) << "one request waits";
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: capture: the service stopped answering at getKVOIndex=0A000006; the plant file is valid, but "
                         "contains only what was read before\n");
    EXPECT_EQ(ended.out, '"' + file_ + "\" has 3 stations; 23 comments say what could not be read\n");
    const std::string text = contentsOf(file_);
    EXPECT_THAT(text, StartsWith("# Incomplete: the service stopped answering at getKVOIndex=0A000006.\n"));
    EXPECT_THAT(text, HasSubstr("\nkvo_index = 1\n"));
    EXPECT_THAT(text,
                HasSubstr("\n# kvo_index: not read: the service had stopped answering\n# dck_enable: not read: the service"));
    EXPECT_THAT(text, testing::EndsWith("0, 0]\n# other keys: not read: the service had stopped answering\n"));
    EXPECT_EQ(kvosim::parsePlant(text, "captured").stations().size(), 3U);
}

TEST_F(CaptureToFile, keeps_what_was_read_before_the_service_ended)
{
    ScriptedService service({support::answersWith([](const std::string &request) {
        if (request.starts_with("getMCPAddress")) {
            unlink(support::kCommandSocket);
        }
        return onlyStation(request);
    })});
    const Ended ended = capture({file_});
    EXPECT_EQ(ended.status, 4);
    EXPECT_THAT(ended.err, HasSubstr("the service stopped answering at getDCKAddress=0A000005; "));
    EXPECT_EQ(kvosim::parsePlant(contentsOf(file_), "captured").stations().size(), 1U);
}

TEST_F(CaptureToFile, says_that_stations_are_missing_if_the_service_does_not_list_them)
{
    ScriptedService service({support::answersWith(
        [](const std::string &request) { return request.starts_with("getDL_ExV2") ? "failed" : onlyStation(request); })});
    const Ended ended = capture({file_});
    EXPECT_EQ(ended.status, 4);
    EXPECT_THAT(ended.err, StartsWith("kvoctl: capture: the service did not return the list of stations: "));
    EXPECT_THAT(contentsOf(file_), HasSubstr("\n# station: not read: "));
}

TEST_F(CaptureToFile, creates_no_file_without_a_service)
{
    const Ended ended = capture({file_});
    EXPECT_EQ(ended.status, 3);
    EXPECT_THAT(ended.err, testing::EndsWith(kNoServiceHint));
    EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(CaptureToFile, keeps_the_old_file_if_the_service_is_silent)
{
    std::ofstream(file_) << "precious";
    ScriptedService service({support::staysSilent(5s)});
    const Ended ended = capture({file_, "--force"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: capture: the service does not answer (result -1)\n");
    EXPECT_EQ(contentsOf(file_), "precious");
}

}  // namespace

}  // namespace kvoctl_test
