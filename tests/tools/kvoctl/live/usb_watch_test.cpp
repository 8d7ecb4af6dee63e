// "kvoctl usb watch": what it shows of events, how it ends, and that nothing keeps it from ending.
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

/// What a service hears of a watch that was told to end.
const std::vector<std::string> kWholeTalk{"isInitComplete\n", "isInitComplete\n", "activateUSBEvents\n",
                                          "deactivateUSBEvents\n"};

// ---- What is shown ----

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

TEST(UsbWatch, shows_events_as_objects_one_a_line)
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

TEST(UsbWatch, of_the_older_callback_is_told_of_new_and_removed_devices_only)
{
    const ScriptedService service({acceptsAll()});
    Watching watch({"--v1"});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(deliver(newText()), "ok");
    EXPECT_EQ(deliver(stateText(7)), "failed");
    EXPECT_EQ(deliver(refusedText()), "failed");
    EXPECT_EQ(deliver(removedText()), "ok");
    EXPECT_EQ(watch.stop(), 0);
    // The first byte is the low one of id2: old programs have never seen another one.
    std::string bytes = "02";
    for (int i = 1; i < 64; ++i) {
        bytes += " 00";
    }
    EXPECT_THAT(watch.events(), ElementsAre("new code=10" + kPlace + kDevice +
                                                R"( text6="Maker" text7="C:\\Stick" number1=1000 id1=1 bytes=")" + bytes + "\"",
                                            "removed code=11" + kPlace));
}

TEST(UsbWatch, of_the_older_callback_has_the_bytes_as_numbers_in_objects)
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

TEST(UsbWatch, writes_valid_objects_of_strange_bytes)
{
    const ScriptedService service({acceptsAll()});
    Watching watch({"--json"});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(deliver(strangeText()), "ok");
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(Json::parse(lines(watch.out()).at(2))["ident2"], "\x1B[2J\tFr\uFFFDse\uFFFD");
}

TEST(UsbWatch, never_tears_lines_of_events_that_come_at_once)
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

TEST(UsbWatch, tells_the_library_s_messages_only_when_they_are_asked_for)
{
    const ScriptedService service({acceptsAll()});
    Watching watch({"--debug"});
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_THAT(watch.err(), HasSubstr("kvo_hws_dll: activate USB events V2 - start server\n"));
    EXPECT_THAT(watch.err(), HasSubstr("kvo_hws_dll: USB server - terminated0"));
}

// ---- How it ends ----

class Signals : public testing::TestWithParam<int> {};

TEST_P(Signals, give_the_events_back)
{
    const ScriptedService service({acceptsAll()});
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(watch.stop(GetParam()), 0);
    EXPECT_EQ(watch.err(), "");
    EXPECT_EQ(service.requests(), kWholeTalk);
    EXPECT_EQ(deliver(removedText()), "(no server)");
}

INSTANTIATE_TEST_SUITE_P(Each, Signals, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST(UsbWatch, ends_when_another_one_takes_the_events_over)
{
    const ScriptedService service({acceptsAll()});
    Watching first;
    ASSERT_TRUE(first.isActive());
    Watching second;
    ASSERT_TRUE(second.isActive());
    EXPECT_EQ(first.wait(), 0);
    EXPECT_EQ(first.err(), "kvoctl: usb watch: another program has taken the events over\n");
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

TEST_P(Activations, that_fail_are_told)
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
                                         kNotActivated + "the service refused or answered something unknown"},
                                        {"unanswered",
                                         {acceptsAll(), acceptsAll(), support::closesAfterRequest()},
                                         3,
                                         "no_service",
                                         -2,
                                         kNotActivated + "no service answers at /tmp/kvo_hws/cmd_sock"}};

INSTANTIATE_TEST_SUITE_P(Rows, Activations, testing::ValuesIn(kFailures), [](const auto &row) { return row.param.name; });

TEST(UsbWatch, tells_a_service_that_refuses_before_anything_is_taken_over)
{
    const ScriptedService service({support::replies("failed")});
    Watching watch;
    EXPECT_EQ(watch.wait(), 4);
    EXPECT_EQ(watch.err(),
              "kvoctl: usb watch: " + std::string("the service refused or answered something unknown (result -1)\n"));
    EXPECT_THAT(service.requests(), ElementsAre("isInitComplete\n"));
}

TEST(UsbWatch, tells_when_the_service_does_not_take_the_events_back)
{
    const ScriptedService service({acceptsAll({{"deactivateUSBEvents", "failed"}})});
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    EXPECT_EQ(watch.stop(), 4);
    EXPECT_EQ(watch.err(), "kvoctl: usb watch: the events could not be given back: the service refused or answered something "
                           "unknown (result -1)\n");
}

TEST(UsbWatch, does_not_wait_for_ever_for_a_service_that_hangs)
{
    const ScriptedService service({acceptsAll(), acceptsAll(), acceptsAll(), support::staysSilent(15s)});
    Watching watch;
    ASSERT_TRUE(watch.isActive());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(watch.stop(), 3);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    EXPECT_THAT(watch.err(), HasSubstr("the events could not be given back: no service answers"));
}

TEST(UsbWatch, fails_where_nobody_can_connect_to_it)
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

// ---- What it writes to ----

TEST(UsbWatch, ends_well_when_its_reader_goes_away)
{
    const ScriptedService service({acceptsAll()});
    // Nothing comes behind the lines that are read: that the reader is gone is seen without writing.
    Shell shell("(\"$KVOCTL\" usb watch; echo status $? >&2) | head -2");
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_EQ(shell.out(), "begin code=3\nactivated code=1\n");
    EXPECT_EQ(shell.err(), "status 0\n");
    EXPECT_EQ(service.requests().back(), "deactivateUSBEvents\n");
}

TEST(UsbWatch, gives_the_events_back_when_its_output_is_full)
{
    const ScriptedService service({acceptsAll()});
    Shell shell("\"$KVOCTL\" usb watch > /dev/full");
    EXPECT_EQ(shell.wait(), 5);
    EXPECT_EQ(shell.err(), "kvoctl: can not write to standard output: No space left on device\n");
    EXPECT_EQ(service.requests().back(), "deactivateUSBEvents\n");
}

TEST(UsbWatch, ends_and_answers_events_while_its_reader_reads_nothing)
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
    EXPECT_EQ(service.requests(), kWholeTalk);
    close(ends[0]);
    close(ends[1]);
}

}  // namespace

}  // namespace kvoctl_test
