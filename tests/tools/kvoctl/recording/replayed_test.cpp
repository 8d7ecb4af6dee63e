// What programs wrote while the simulator was recorded, they write again, byte for byte, while the recording is replayed.
#include "tools/kvoctl/support/function_commands.h"
#include "tools/kvosim/support/program.h"

#include "common/recording/recording.h"
#include "support/eventually.h"

#include <gtest/gtest.h>
#include <ostream>
#include <set>
#include <sstream>

namespace kvoctl_test {

namespace {

using kvosim_test::Program;
using kvosim_test::TemporaryDirectory;
using tools::recording::Exchange;
using tools::recording::Kind;
using tools::recording::Recording;

/// A command for the simulator, as soon as the script has created a file.
struct Act {
    const char *file;
    Arguments command;
};

struct Scenario {
    std::string name;
    std::string script;  ///< of a shell, in a folder of its own. It writes nothing that differs from run to run
    std::vector<Act> acts{};
    std::size_t events = 0;  ///< USB and embedded events that must be in the recording
};

std::ostream &operator<<(std::ostream &out, const Scenario &scenario) { return out << scenario.name; }

constexpr const char *kFunctions = R"sh(
# await FILE TEXT [COUNT]: waits until COUNT lines of a file contain the text
await() {
    for i in $(seq 400); do
        [ "$(grep -cs -- "$2" "$1")" -ge "${3:-1}" ] && return
        sleep 0.05
    done
    echo "no $2 in $1 after 20 s"
}
#watch FILE COMMAND... : starts a command that ends at the signal SIGINT
watch() {
    file=$1
    shift
    "$@" > "$file" 2>&1 &
}
#finish FILE PROCESS : ends it, and shows what it wrote
finish() {
    kill -INT "$2"
    wait "$2"
    echo "status $?"
    cat "$1"
}
)sh";

Arguments shell(const TemporaryDirectory &folder, const Scenario &scenario)
{
    return {"sh", "-c",
            "cd '" + folder.path().string() + "'; KVOCTL='" KVOCTL_PROGRAM "'\n" + kFunctions + scenario.script + "\ntrue\n"};
}

Arguments joined(Arguments first, const Arguments &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// Runs the script at a simulated plant and records it. Returns what it wrote.
std::string record(const std::string &file, const Scenario &scenario)
{
    const TemporaryDirectory folder;
    const Program simulator({KVOSIM_PROGRAM, "serve", "--plant", EXAMPLE_PLANT, "--alive", "0"});
    EXPECT_TRUE(simulator.hasWritten("serving")) << simulator.err();
    Program recorder(joined({KVOCTL_PROGRAM, "record", "--capture", "--rate", "max", file, "--"}, shell(folder, scenario)));
    for (const Act &act : scenario.acts) {
        EXPECT_TRUE(support::eventually([&] { return std::filesystem::exists(folder / act.file); })) << act.file;
        // An embedded event is refused as long as no program listens.
        EXPECT_TRUE(support::eventually([&] { return Program(joined({KVOSIM_PROGRAM}, act.command)).wait() == 0; }))
            << testing::PrintToString(act.command);
    }
    EXPECT_EQ(recorder.wait(), 0) << recorder.err();
    return recorder.out();
}

std::vector<Exchange> exchangesOf(const Recording &recording)
{
    std::vector<Exchange> exchanges;
    for (std::size_t i = 0; i < recording.size(); ++i) {
        if (const auto line = recording.line(i); const auto *exchange = std::get_if<Exchange>(&line)) {
            exchanges.push_back(*exchange);
        }
    }
    return exchanges;
}

std::size_t eventsIn(const Recording &recording)
{
    std::size_t count = 0;
    for (const Exchange &exchange : exchangesOf(recording)) {
        count += exchange.kind != Kind::ask && !exchange.request.empty() ? 1 : 0;
    }
    return count;
}

class Replayed : public testing::TestWithParam<Scenario> {};

TEST_P(Replayed, writes_the_same_bytes)
{
    const TemporaryDirectory folder;
    const std::string file = folder / "x.rec";
    const std::string recorded = record(file, GetParam());
    EXPECT_GT(recorded.size(), 10U);
    EXPECT_GE(eventsIn(Recording::load(file)), GetParam().events);

    const TemporaryDirectory place;
    Program replay(joined({KVOSIM_PROGRAM, "replay", file, "--"}, shell(place, GetParam())));
    EXPECT_EQ(replay.wait(), 0) << replay.err();
    EXPECT_EQ(replay.out(), recorded);
}

// ---- Requests ----

std::string quoted(const std::string &word) { return " '" + word + "'"; }

/// The commands that ask the command socket and end by themselves, in the order of the catalogue.
std::vector<FunctionCommand> askingCommands()
{
    static const std::set<std::string> kOthers{"usb watch", "events watch", "agent run", "kill-daemon"};
    std::vector<FunctionCommand> all = functionCommands();
    std::erase_if(all, [](const FunctionCommand &row) { return kOthers.contains(row.command); });
    return all;
}

std::string askEverything()
{
    std::string script;
    for (const FunctionCommand &row : askingCommands()) {
        for (const char *form : {"", " --json"}) {
            std::string command = " $KVOCTL" + std::string(form) + ' ' + row.command;
            for (const std::string &argument : row.arguments) {
                command += quoted(argument);
            }
            script += "echo '> " + row.name + "';" + command + " 2>&1; echo \"status $?\"\n";
        }
    }
    return script + "$KVOCTL panel show 'Milling centre 1' 2>&1\n$KVOCTL kill-daemon 2>&1\n";
}

TEST(ReplayedRequests, include_every_request_of_the_library)
{
    const std::string script = askEverything();
    std::set<std::string> functions;
    for (const FunctionCommand &row : askingCommands()) {
        functions.insert(row.function);
    }
    for (const FunctionCommand &row : functionCommands()) {
        if (!functions.contains(row.function)) {
            std::printf("not among the commands that end by themselves: %s by \"%s\"\n", row.function.c_str(),
                        row.command.c_str());
        }
    }
    EXPECT_GE(functions.size(), 75U);
}

// ---- Events ----

constexpr const char *kUsbWatch = R"(
watch watched $KVOCTL usb watch; first=$!
await watched '^activated'
touch active
await watched '^removed'
await watched 'too much current'
touch used
watch second $KVOCTL usb watch; next=$!
await second '^activated'
await watched '^deactivated'
wait $first
echo "the first one ended: $?"
cat watched
touch taken_over
await second '^new'
finish second $next
$KVOCTL usb is-active
)";

const std::vector<Act> kUsbActs{
    {"active", {"usb", "plug", "10.0.0.5", "--ident2", "stick", "--text7", "Memory stick"}},
    {"active", {"usb", "state", "10.0.0.5", "stick", "2"}},
    {"active", {"usb", "unplug", "10.0.0.5", "stick"}},
    {"active", {"usb", "refuse", "10.0.0.5", "--text8", "too much current"}},
    {"taken_over", {"usb", "plug", "10.0.0.6", "--ident2", "printer"}},
};

constexpr const char *kEmbedded = R"(
watch watched $KVOCTL events watch; first=$!
touch listening
await watched 'F2'
finish watched $first
)";

// ---- Programs in C and C++ ----

/// The examples that end by themselves.
std::string runExamples()
{
    std::string script;
    for (const char *name : {"stations", "stations_cpp", "viewer", "panel_settings", "addressing", "focus", "input",
                             "usb_connectors", "metrics"}) {
        script += "echo '> " + std::string(name) + "'; " EXAMPLES "/example_" + name + " 2>&1; echo \"status $?\"\n";
    }
    return script;
}

/// An example that ends at a line of its input. It would otherwise write to a file only at its end.
std::string runUntilInput(const std::string &example, const std::string &wanted)
{
    return "mkfifo input\nASAN_OPTIONS=verify_asan_link_order=0 stdbuf -oL " EXAMPLES "/example_" + example +
           " < input > output 2>&1 & process=$!\nexec 3> input\n" +
           (example == "usb_events" ? "await output '^waiting'\n" : "") + "touch ready\nawait output '" + wanted +
           "'\necho >&3\nwait $process\necho \"status $?\"\ncat output\n";
}

std::vector<Scenario> scenarios()
{
    return {
        {"examples", runExamples()},
        {"example_of_usb_events",
         runUntilInput("usb_events", "was removed"),
         {{"ready", {"usb", "plug", "10.0.0.5", "--ident2", "stick"}}, {"ready", {"usb", "unplug", "10.0.0.5", "stick"}}},
         2},
        {"example_of_embedded_events", runUntilInput("embedded_events", "F1"), {{"ready", {"event", "key, F1"}}}, 1},
        {"every_family_of_requests", askEverything()},
        {"usb_events_with_takeover", kUsbWatch, kUsbActs, 5},
        {"embedded_events", kEmbedded, {{"listening", {"event", "key, F1"}}, {"listening", {"event", "key, F2"}}}, 2},
    };
}

INSTANTIATE_TEST_SUITE_P(All, Replayed, testing::ValuesIn(scenarios()), [](const auto &row) { return row.param.name; });

}  // namespace

}  // namespace kvoctl_test
