// Both programs together, as a user runs them: the simulator is the remote service of the agent, and publishes events.
#include "tools/kvoctl/support/watching.h"
#include "tools/kvosim/support/run_kvosim.h"

#include "support/usb_events.h"

namespace kvoctl_test {

namespace {

using kvosim_test::Exited;
using kvosim_test::runKvosim;
using testing::HasSubstr;

/// Runs a shell command with a simulated service. $KVOCTL and $KVOSIM are the programs.
Exited simulated(const Arguments &options, const std::string &line)
{
    Arguments all{"run", "--plant", EXAMPLE_PLANT};
    all.insert(all.end(), options.begin(), options.end());
    all.insert(all.end(), {"--", "sh", "-c", "KVOCTL='" KVOCTL_PROGRAM "'; KVOSIM='" KVOSIM_PROGRAM "'; " + line});
    return runKvosim(all);
}

TEST(AgentSimulation, answers_the_simulated_remote_service)
{
    // The script follows the agent's progress in the lines of its output.
    const Exited ended = simulated({"--remote", "3"}, R"sh(
"$KVOCTL" agent run --focus 10.0.0.5 --remote 127.0.0.1 --session 3 --kvo-index 7 --answer activate-me=busy < /dev/null |
while read -r event rest; do
    echo "$event${rest:+ $rest}"
    case $event in
    connected)
        echo "asked: $("$KVOSIM" remote ask 3 get-kvoindex)"
        echo "asked: $("$KVOSIM" remote ask 3 activate-me)"
        echo "asked: $("$KVOSIM" remote ask 3 stop-viewer)" ;;
    command) case $rest in *stop-viewer*) exit ;; esac ;;
    esac
done)sh");
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_THAT(lines(ended.out),
                testing::ElementsAre(R"(started focus="10.0.0.5" remote="127.0.0.1" port=5853)", "connected",
                                     "asked: kvoindex=7", "asked: busy", "asked: ok",
                                     R"(command keyword="activate-me" answer=0)", R"(command keyword="stop-viewer" answer=1)"));
}

TEST(AgentSimulation, pushes_to_the_remote_service)
{
    // After the reply to the first request has arrived, it takes a moment until the agent accepts a line.
    const Exited ended = simulated({"--remote", "3"}, R"sh(
out=$TMPDIR/out
{
    for i in $(seq 90); do "$KVOSIM" remote ask 3 ping > /dev/null 2>&1 && break; sleep 0.1; done
    for i in $(seq 90); do grep -qs ^pushed "$out" && break; echo "screen changed"; sleep 0.1; done
} | "$KVOCTL" agent run --focus 10.0.0.5 --remote 127.0.0.1 --session 3 > "$out" &
until grep -s -m 1 ^pushed "$out"; do sleep 0.1; done
until "$KVOSIM" remote log | grep -o "I01:.*"; do sleep 0.1; done
kill -TERM $!
wait $!)sh");
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_THAT(lines(ended.out), testing::ElementsAre("pushed text=\"screen changed\"", "I01:screen changed"));
}

TEST(AgentSimulation, passes_the_whole_check)
{
    const Exited ended = simulated({}, R"("$KVOCTL" agent check --focus-name 'Portal mill' --mcp --all)");
    EXPECT_EQ(ended.status, 0) << ended.out << ended.err;
    EXPECT_THAT(ended.out, HasSubstr("60 commands, 60 sent, 0 without a valid reply\n"));
}

TEST(EventSimulation, shows_published_events)
{
    const Exited ended = simulated({}, R"sh(
out=$TMPDIR/out
until_there() { until grep -qs "$1" "$out"; do "$KVOSIM" event "$1, 10.0.0.5" > /dev/null 2>&1; sleep 0.1; done; }
"$KVOCTL" events watch --json > "$out" &
until_there first
until_there focus
kill -TERM $!
wait $!
echo status $?
uniq "$out")sh");
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(lines(ended.out), testing::ElementsAre("status 0", R"({"name":"first","data":"10.0.0.5"})",
                                                       R"({"name":"focus","data":"10.0.0.5"})"));
}

}  // namespace

}  // namespace kvoctl_test
