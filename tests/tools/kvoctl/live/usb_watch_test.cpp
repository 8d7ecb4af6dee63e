// "kvoctl usb watch": its output for events, its end, and that nothing blocks its end.
#include "tools/kvoctl/support/signals.h"
#include "tools/kvoctl/support/usb_devices.h"
#include "tools/kvoctl/support/watching.h"

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;

namespace kvoctl_test {

namespace {

using support::acceptsAll;
using support::ScriptedService;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kPlace = R"( ip_address="10.0.0.5" ident2="Portal mill" ident3="1-1.2")";
const std::string kDevice = R"( text4="Stick \"A\"" text5="")";

/// The requests of a watch from its start to its end by a signal.
const std::vector<std::string> kAllRequests{"isInitComplete\n", "isInitComplete\n", "activateUSBEvents\n",
                                            "deactivateUSBEvents\n"};

// ---- Output ----

TEST(UsbWatch, shows_every_event_with_all_its_fields)
{
    const ScriptedService service({acceptsAll()});
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    for (const std::string &text : {newText(), stateText(7), refusedText(), removedText()}) {
        EXPECT_EQ(deliver(text), "ok");
    }
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(watch.err(), "");
    EXPECT_THAT(lines(watch.out()), ElementsAre("begin code=3", "activated code=1",
                                                "new code=10" + kPlace + kDevice +
                                                    R"( text6="Maker" text7="C:\\Stick" number1=1000 number2=4000000000)"
                                                    R"( flag_word=0x08000000 flag_bits=0x5)",
                                                "state code=13" + kPlace + " state=7",
                                                "refused code=14" + kPlace + kDevice +
                                                    R"( text8="too much current" number1=1000 number2=4000000000 number3=31)",
                                                "removed code=11" + kPlace, "begin code=3", "deactivated code=2"));
}

TEST(UsbWatch, shows_one_json_object_per_line)
{
    const ScriptedService service({acceptsAll()});
    Watching watch({"--json"});
    ASSERT_TRUE(watch.isActive());
    for (const std::string &text : {newText(), stateText(7), refusedText(), removedText()}) {
        EXPECT_EQ(deliver(text), "ok");
    }
    EXPECT_EQ(watch.stop(), 0);
    const std::string place = R"("ip_address":"10.0.0.5","ident2":"Portal mill","ident3":"1-1.2")";
    const std::string device = place + R"(,"text4":"Stick \"A\"","text5":"")";
    EXPECT_THAT(lines(watch.out()),
                ElementsAre(R"({"event":"begin","code":3})", R"({"event":"activated","code":1})",
                            R"({"event":"new","code":10,)" + device +
                                R"(,"text6":"Maker","text7":"C:\\Stick","number1":1000,"number2":4000000000,)"
                                R"("flag_word":134217728,"flag_bits":5})",
                            R"({"event":"state","code":13,)" + place + R"(,"state":7})",
                            R"({"event":"refused","code":14,)" + device +
                                R"(,"text8":"too much current","number1":1000,"number2":4000000000,"number3":31})",
                            R"({"event":"removed","code":11,)" + place + "}", R"({"event":"begin","code":3})",
                            R"({"event":"deactivated","code":2})"));
}

TEST(UsbWatch, shows_only_new_and_removed_devices_with_the_older_callback)
{
    const ScriptedService service({acceptsAll()});
    Watching watch({"--v1"});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(deliver(newText()), "ok");
    EXPECT_EQ(deliver(stateText(7)), "failed");
    EXPECT_EQ(deliver(refusedText()), "failed");
    EXPECT_EQ(deliver(removedText()), "ok");
    EXPECT_EQ(watch.stop(), 0);
    // The first byte is the low byte of id2: old programs have never received another value.
    std::string bytes = "02";
    for (int i = 1; i < 64; ++i) {
        bytes += " 00";
    }
    EXPECT_THAT(watch.events(), ElementsAre("new code=10" + kPlace + kDevice +
                                                R"( text6="Maker" text7="C:\\Stick" number1=1000 id1=1 bytes=")" + bytes + "\"",
                                            "removed code=11" + kPlace));
}

TEST(UsbWatch, shows_the_bytes_of_the_older_callback_as_numbers_in_json)
{
    const ScriptedService service({acceptsAll()});
    Watching watch({"--v1", "--json"});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(deliver(newText()), "ok");
    ASSERT_TRUE(watch.hasWritten("new"));
    EXPECT_EQ(watch.stop(), 0);
    const Json event = Json::parse(lines(watch.out()).at(2));
    EXPECT_EQ(event["id1"], 1);
    EXPECT_EQ(event["bytes"].size(), 64U);
    EXPECT_EQ(event["bytes"][0], 2);
    EXPECT_FALSE(event.contains("number2"));
}

/// Escapes, an accent in Latin-1, and half a character.
const std::string kStrange = "\x1B[2J\tFr\xE4se\xE3\x83";

std::string strangeText()
{
    UsbDeviceSource device = deviceSource();
    kStrange.copy(device.ident2, sizeof device.ident2);
    device.ident2[kStrange.size()] = '\0';
    return newText(device);
}

TEST(UsbWatch, escapes_strange_bytes)
{
    const ScriptedService service({acceptsAll()});
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(deliver(strangeText()), "ok");
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_THAT(watch.events(), ElementsAre(HasSubstr(R"(ident2="\x1B[2J\x09Fr\xE4se\xE3\x83")")));
}

TEST(UsbWatch, writes_valid_json_for_strange_bytes)
{
    const ScriptedService service({acceptsAll()});
    Watching watch({"--json"});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(deliver(strangeText()), "ok");
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(Json::parse(lines(watch.out()).at(2))["ident2"], "\x1B[2J\tFr\uFFFDse\uFFFD");
}

TEST(UsbWatch, never_mixes_lines_of_simultaneous_events)
{
    const ScriptedService service({acceptsAll()});
    Watching watch({"--json"});
    ASSERT_TRUE(watch.isActive());
    constexpr int kThreads = 12;
    constexpr int kEach = 4;
    std::vector<std::thread> daemons;
    for (int thread = 0; thread < kThreads; ++thread) {
        daemons.emplace_back([thread] {
            for (int i = 0; i < kEach; ++i) {
                EXPECT_EQ(deliver(stateText(static_cast<uint32_t>(thread * kEach + i))), "ok");
            }
        });
    }
    for (std::thread &daemon : daemons) {
        daemon.join();
    }
    EXPECT_EQ(watch.stop(), 0);
    std::set<uint32_t> states;
    for (const std::string &line : lines(watch.out())) {
        const Json event = Json::parse(line);
        if (event["event"] == "state") {
            states.insert(event["state"].get<uint32_t>());
        }
    }
    EXPECT_EQ(states.size(), std::size_t{kThreads * kEach});
}

TEST(UsbWatch, waits_for_a_service_that_is_still_starting)
{
    const ScriptedService service({support::replies("no"), support::replies("no"), acceptsAll()});
    Watching watch;
    EXPECT_TRUE(watch.isActive());
    EXPECT_EQ(watch.stop(), 0);
}

TEST(UsbWatch, shows_the_library_s_messages_with_the_option_debug)
{
    const ScriptedService service({acceptsAll()});
    Watching watch({"--debug"});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_THAT(watch.err(), HasSubstr("kvo_hws_dll: activate USB events V2 - start server\n"));
    EXPECT_THAT(watch.err(), HasSubstr("kvo_hws_dll: USB server - terminated0"));
}

// ---- The end ----

class WatchSignals : public testing::TestWithParam<int> {};

TEST_P(WatchSignals, close_the_events)
{
    const ScriptedService service({acceptsAll()});
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(watch.stop(GetParam()), 0);
    EXPECT_EQ(watch.err(), "");
    EXPECT_EQ(service.requests(), kAllRequests);
    EXPECT_EQ(deliver(removedText()), "(no server)");
}

INSTANTIATE_TEST_SUITE_P(Each, WatchSignals, testing::Values(SIGINT, SIGTERM, SIGHUP), signalName);

TEST(UsbWatch, ends_when_another_program_takes_over_the_events)
{
    const ScriptedService service({acceptsAll()});
    Watching first;
    ASSERT_TRUE(first.isActive());
    Watching second;
    ASSERT_TRUE(second.isActive());
    EXPECT_EQ(first.wait(), 0);
    EXPECT_EQ(first.err(), "kvoctl: usb watch: another program has taken over the events\n");
    EXPECT_EQ(lines(first.out()).back(), "deactivated code=2");
    EXPECT_EQ(deliver(removedText()), "ok");
    EXPECT_EQ(second.stop(), 0);
    EXPECT_EQ(second.err(), "");
    EXPECT_THAT(first.events(), IsEmpty());
    EXPECT_EQ(second.events().size(), 1U);
}

TEST(UsbWatch, needs_a_service)
{
    Watching watch;
    EXPECT_EQ(watch.wait(), 3);
    EXPECT_EQ(watch.out(), "");
    EXPECT_EQ(watch.err(), "kvoctl: usb watch: no service answers at /tmp/kvo_hws/cmd_sock (result -2)\n" + kNoServiceHint);
}

struct Failing {
    std::string name;
    std::vector<support::Script> service;
    int status;
    std::string word;
    int result;
    std::string meaning;
};

std::ostream &operator<<(std::ostream &out, const Failing &row) { return out << row.name; }

class Activations : public testing::TestWithParam<Failing> {};

TEST_P(Activations, that_fail_are_reported)
{
    const Failing &row = GetParam();
    const ScriptedService service(row.service);
    Watching watch({"--json"});
    EXPECT_EQ(watch.wait(), row.status);
    EXPECT_THAT(watch.err(),
                testing::StartsWith("kvoctl: usb watch: " + row.meaning + " (result " + std::to_string(row.result) + ")\n"));
    const std::vector<std::string> written = lines(watch.out());
    ASSERT_EQ(written.size(), 3U) << watch.out();
    EXPECT_EQ(Json::parse(written[0])["event"], "begin");
    EXPECT_EQ(Json::parse(written[1])["event"], row.word);
    EXPECT_EQ(Json::parse(written[2]), (Json{{"error", {{"code", row.result}, {"meaning", row.meaning}}}}));
}

const std::string kNotActivated = "the events could not be activated: ";

const std::vector<Failing> kFailures = {{"refused",
                                         {acceptsAll({{"activateUSBEvents", "failed"}})},
                                         4,
                                         "service_refused",
                                         -1,
                                         kNotActivated + "the service refused or sent an unknown reply"},
                                        {"unanswered",
                                         {acceptsAll(), acceptsAll(), support::closesAfterRequest()},
                                         3,
                                         "no_service",
                                         -2,
                                         kNotActivated + "no service answers at /tmp/kvo_hws/cmd_sock"}};

INSTANTIATE_TEST_SUITE_P(Rows, Activations, testing::ValuesIn(kFailures), [](const auto &row) { return row.param.name; });

TEST(UsbWatch, reports_a_refusal_before_it_takes_over_the_events)
{
    const ScriptedService service({support::replies("failed")});
    Watching watch;
    EXPECT_EQ(watch.wait(), 4);
    EXPECT_EQ(watch.err(), "kvoctl: usb watch: " + std::string("the service refused or sent an unknown reply (result -1)\n"));
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n"));
}

TEST(UsbWatch, reports_a_refused_close)
{
    const ScriptedService service({acceptsAll({{"deactivateUSBEvents", "failed"}})});
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(watch.stop(), 4);
    EXPECT_EQ(watch.err(), "kvoctl: usb watch: the events could not be closed: the service refused or sent an unknown "
                           "reply (result -1)\n");
}

TEST(UsbWatch, does_not_wait_forever_for_a_service_that_hangs)
{
    const ScriptedService service({acceptsAll(), acceptsAll(), acceptsAll(), support::staysSilent(15s)});
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(watch.stop(), 3);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    EXPECT_THAT(watch.err(), HasSubstr("the events could not be closed: no service answers"));
}

TEST(UsbWatch, fails_if_its_socket_cannot_be_created)
{
    const ScriptedService service({acceptsAll()});
    std::filesystem::remove(support::kUsbSocket);
    std::filesystem::create_directory(support::kUsbSocket);
    Watching watch;
    EXPECT_EQ(watch.wait(), 4);
    EXPECT_EQ(watch.out(), "begin code=3\nserver_failed code=100\n");
    EXPECT_THAT(watch.err(),
                testing::EndsWith("kvoctl: usb watch: the events could not be activated: the USB event server could not be "
                                  "stopped or started (result -8)\n"));
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n"));
    std::filesystem::remove(support::kUsbSocket);
}

// ---- Standard output ----

TEST(UsbWatch, ends_with_status_0_when_its_output_is_closed)
{
    const ScriptedService service({acceptsAll()});
    // No event follows the lines that are read: kvoctl notices the closed pipe without writing.
    Shell shell("(\"$KVOCTL\" usb watch; echo status $? >&2) | head -2");
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_EQ(shell.out(), "begin code=3\nactivated code=1\n");
    EXPECT_EQ(shell.err(), "status 0\n");
    EXPECT_EQ(service.requests().back(), "deactivateUSBEvents\n");
}

TEST(UsbWatch, closes_the_events_when_its_output_is_full)
{
    const ScriptedService service({acceptsAll()});
    Shell shell("\"$KVOCTL\" usb watch > /dev/full");
    EXPECT_EQ(shell.wait(), 5);
    EXPECT_EQ(shell.err(), "kvoctl: cannot write to standard output: No space left on device\n");
    EXPECT_EQ(service.requests().back(), "deactivateUSBEvents\n");
}

TEST(UsbWatch, answers_events_and_ends_while_its_output_is_not_read)
{
    const ScriptedService service({acceptsAll()});
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int size = fcntl(ends[1], F_SETPIPE_SZ, 4096);
    ASSERT_GT(size, 0);
    const std::string full(static_cast<std::size_t>(size), 'x');
    ASSERT_EQ(write(ends[1], full.data(), full.size()), size);
    Shell shell("exec \"$KVOCTL\" usb watch >&" + std::to_string(ends[1]));
    ASSERT_TRUE(support::eventually([&service] { return service.requests().size() == 3; }));
    EXPECT_EQ(deliver(removedText()), "ok");
    shell.signal(SIGTERM);
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_EQ(service.requests(), kAllRequests);
    close(ends[0]);
    close(ends[1]);
}

}  // namespace

}  // namespace kvoctl_test
