// A command that runs under supervision: its preparation and its status. (kvosim's tests run whole programs.)
#include "common/supervised_command.h"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using testing::EndsWith;
using tools::EventLoop;
using tools::SupervisedCommand;

struct Ended {
    int status;
    std::string errors;
};

Ended run(const std::vector<std::string> &words, const std::function<void()> &prepare,
          const std::function<void(EventLoop &, const SupervisedCommand &)> &started = {})
{
    testing::internal::CaptureStderr();
    EventLoop loop;
    const SupervisedCommand command(loop, words, [&loop] { loop.stop(); }, {.messagePrefix = "tool: word", .prepare = prepare});
    if (started) {
        started(loop, command);
    }
    loop.run();
    return {command.status(), testing::internal::GetCapturedStderr()};
}

TEST(SupervisedCommand, is_prepared_in_its_own_process)
{
    const Ended ended = run({"sh", "-c", "exit $PREPARED"}, [] { setenv("PREPARED", "7", 1); });
    EXPECT_EQ(ended.status, 7);
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(getenv("PREPARED"), nullptr);
}

TEST(SupervisedCommand, does_not_start_if_it_cannot_be_prepared)
{
    const Ended ended = run({"sh", "-c", "echo started >&2"}, [] { throw std::runtime_error("no right to do this"); });
    EXPECT_EQ(ended.status, 125);
    EXPECT_EQ(ended.errors, "tool: word: no right to do this\n");
}

TEST(SupervisedCommand, names_the_tool_if_it_cannot_be_executed)
{
    EXPECT_EQ(run({"/no/such/program"}, {}).errors, "tool: word: /no/such/program: No such file or directory\n");
    EXPECT_EQ(run({"/no/such/program"}, {}).status, 127);
    EXPECT_EQ(run({"/"}, {}).status, 126);
}

TEST(SupervisedCommand, can_be_signalled)
{
    const Ended ended = run({"sleep", "60"}, {}, [](EventLoop &loop, const SupervisedCommand &command) {
        loop.after(50ms, [&command] { command.signal(SIGTERM); });
    });
    EXPECT_EQ(ended.status, 128 + SIGTERM);
}

}  // namespace
