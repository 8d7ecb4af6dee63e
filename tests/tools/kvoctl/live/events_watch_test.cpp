// "kvoctl events watch": its output for the events of embedded stations, and its end.
#include "support/scripted_service.h"
#include "support/usb_events.h"
#include "tools/kvoctl/support/script.h"
#include "tools/kvoctl/support/signals.h"
#include "tools/kvoctl/support/watching.h"

#include <chrono>
#include <filesystem>

using namespace std::chrono_literals;

namespace kvoctl_test {

namespace {

using support::ScriptedService;
using support::Step;
using testing::ElementsAre;

constexpr const char *kEventSocket = "/tmp/kvo_hws/event_sock";
constexpr const char *kNotYet = "kvoctl: events watch: no process listens yet at /tmp/kvo_hws/event_sock; waiting\n";

constexpr const char *kNoMore = "kvoctl: events watch: no process listens any longer at /tmp/kvo_hws/event_sock; waiting\n";

/// A service that sends @p lines to each client, and then nothing more.
support::Script publishes(const std::string &lines)
{
    return {{.kind = Step::Kind::write, .bytes = lines}, {.kind = Step::Kind::pause, .pause = 60s}};
}

class Events : public Watching {
public:
    explicit Events(const Arguments &more = {}) : Watching(more, {"events", "watch"}) {}
};

TEST(EventsWatch, shows_names_and_data)
{
    const ScriptedService service(
        {publishes("focus, 10.0.0.5\nAlive?\nempty,\nAlive? or not, x\nno comma\nquote, a \"b\", c\n")}, kEventSocket);
    Events watch;
    ASSERT_TRUE(watch.hasWritten("quote"));
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(watch.err(), "");
    EXPECT_THAT(lines(watch.out()), ElementsAre(R"(name="focus" data="10.0.0.5")", R"(name="empty" data="")",
                                                R"(name="Alive? or not" data="x")", R"(name="quote" data="a \"b\", c")"));
}

TEST(EventsWatch, shows_one_json_object_per_line)
{
    const ScriptedService service({publishes("focus, 10.0.0.5\nodd\x1B, \xE4\t\"\n")}, kEventSocket);
    Events watch({"--json"});
    ASSERT_TRUE(watch.hasWritten("odd"));
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_THAT(lines(watch.out()),
                ElementsAre(R"({"name":"focus","data":"10.0.0.5"})", "{\"name\":\"odd\\u001b\",\"data\":\"\uFFFD\\t\\\"\"}"));
}

TEST(EventsWatch, escapes_strange_bytes)
{
    const ScriptedService service({publishes("odd, \xE4\x1B[2J\n")}, kEventSocket);
    Events watch;
    ASSERT_TRUE(watch.hasWritten("odd"));
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(watch.out(), "name=\"odd\" data=\"\\xE4\\x1B[2J\"\n");
}

TEST(EventsWatch, never_splits_long_lines)
{
    const std::string data(100'000, 'd');
    std::string all;
    for (int i = 0; i < 20; ++i) {
        all += "long" + std::to_string(i) + ", " + data + "\n";
    }
    const ScriptedService service({publishes(all)}, kEventSocket);
    Shell shell("\"$KVOCTL\" events watch --json | head -20");
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_EQ(lines(shell.out()).size(), 20U);
    for (const std::string &line : lines(shell.out())) {
        EXPECT_EQ(Json::parse(line)["data"], data);
    }
}

TEST(EventsWatch, runs_a_program_for_each_event)
{
    const ScriptedService service({publishes("focus, $(touch owned)\nother, b\n")}, kEventSocket);
    const Script script(
        "env | grep ^KVO_EVENT_ | LC_ALL=C sort >> environment; echo to the errors; [ $KVO_EVENT_NAME = focus ]");
    Events watch({"--exec", script.path()});
    ASSERT_TRUE(watch.hasWritten("other"));
    ASSERT_TRUE(support::eventually([&watch] { return watch.err().find("status") != std::string::npos; }));
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(script.file("environment"),
              "KVO_EVENT_DATA=$(touch owned)\nKVO_EVENT_NAME=focus\nKVO_EVENT_DATA=b\nKVO_EVENT_NAME=other\n");
    EXPECT_FALSE(script.has("owned"));
    EXPECT_EQ(watch.out(), "name=\"focus\" data=\"$(touch owned)\"\nname=\"other\" data=\"b\"\n");
    EXPECT_EQ(watch.err(), "to the errors\nto the errors\nkvoctl: events watch: " + script.path() +
                               " exited with status 1 (event \"other\")\n");
}

TEST(EventsWatch, ends_while_the_program_hangs)
{
    const ScriptedService service({publishes("focus, a\n")}, kEventSocket);
    const Script script("touch hangs; exec sleep 20");
    Events watch({"--exec", script.path()});
    ASSERT_TRUE(support::eventually([&script] { return script.has("hangs"); }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_EQ(watch.out(), "name=\"focus\" data=\"a\"\n");
}

TEST(EventsWatch, reports_that_it_waits_for_a_service)
{
    Events watch;
    ASSERT_TRUE(support::eventually([&watch] { return watch.err() == kNotYet; })) << watch.err();
    const ScriptedService service({publishes("focus, a\n")}, kEventSocket);
    EXPECT_TRUE(watch.hasWritten("name=\"focus\" data=\"a\"\n"));
    ASSERT_TRUE(support::eventually([&watch] { return watch.err().ends_with("listening\n"); }));
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(watch.err(), std::string(kNotYet) + "kvoctl: events watch: listening\n");
}

TEST(EventsWatch, reports_a_service_that_has_ended)
{
    std::optional<ScriptedService> service;
    service.emplace(std::vector<support::Script>{publishes("focus, a\n")}, kEventSocket);
    Events watch;
    ASSERT_TRUE(watch.hasWritten("focus"));
    EXPECT_EQ(watch.err(), "");
    service.reset();
    EXPECT_TRUE(support::eventually([&watch] { return watch.err() == kNoMore; })) << watch.err();
    EXPECT_EQ(watch.stop(), 0);
}

class EventSignals : public testing::TestWithParam<int> {};

TEST_P(EventSignals, end_the_watch_even_without_a_service)
{
    Events watch;
    ASSERT_TRUE(support::eventually([&watch] { return watch.err() == kNotYet; }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(watch.stop(GetParam()), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
    EXPECT_EQ(watch.err(), kNotYet);
    EXPECT_EQ(watch.out(), "");
}

INSTANTIATE_TEST_SUITE_P(Each, EventSignals, testing::Values(SIGINT, SIGTERM, SIGHUP), signalName);

TEST(EventsWatch, ends_with_status_0_when_its_output_is_closed)
{
    const ScriptedService service({publishes("focus, a\n")}, kEventSocket);
    Shell shell("(\"$KVOCTL\" events watch; echo status $? >&2) | head -1");
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_EQ(shell.out(), "name=\"focus\" data=\"a\"\n");
    EXPECT_EQ(shell.err(), "status 0\n");
}

TEST(EventsWatch, fails_when_its_output_is_full)
{
    const ScriptedService service({publishes("focus, a\n")}, kEventSocket);
    Shell shell("\"$KVOCTL\" events watch > /dev/full");
    EXPECT_EQ(shell.wait(), 5);
    EXPECT_EQ(shell.err(), "kvoctl: cannot write to standard output: No space left on device\n");
}

}  // namespace

}  // namespace kvoctl_test
