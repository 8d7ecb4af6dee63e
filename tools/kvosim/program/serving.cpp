#include "kvosim/program/serving.h"

#include "common/refused.h"
#include "common/signals.h"
#include "common/supervised_command.h"
#include "kvosim/program/run_directory.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <sys/epoll.h>
#include <system_error>
#include <unistd.h>

namespace kvosim {

namespace {

constexpr int kExitSuccess = 0;

/// Ends the service at the end of standard input: the process at the other end of the pipe has closed it, or has ended.
void endWithInput(tools::EventLoop &loop, const std::function<void()> &end)
{
    const auto read = [&loop, end](uint32_t /*events*/) {
        std::array<char, 512> ignored{};
        if (::read(STDIN_FILENO, ignored.data(), ignored.size()) <= 0) {
            loop.unwatch(STDIN_FILENO);
            end();
        }
    };
    try {
        loop.watch(STDIN_FILENO, EPOLLIN, read);
    } catch (const std::system_error &) {
        throw tools::Refused(
            "--until-input-ends: standard input is not a pipe, socket or terminal, so its end cannot be detected");
    }
}

/// The reader of messages may go, such as the "tee" that Ctrl-C ends too. The service goes on, and cleans up at its end. Returns how
/// the signal was handled before.
sighandler_t ignoreLostReaders() { return std::signal(SIGPIPE, SIG_IGN); }

}  // namespace

int serveUntilEnded(const StartService &start, bool untilInputEnds)
{
    ignoreLostReaders();
    tools::EventLoop loop;
    std::optional<StartedService> started;
    // Before the service, so that a signal meanwhile does not end the process without its cleanup.
    const tools::Signals signals(loop, {SIGINT, SIGTERM}, [&started](const auto &) { started->end(); });
    started = start(loop);
    if (untilInputEnds) {
        endWithInput(loop, started->end);
    }
    std::printf("%s\n", started->readyLine.c_str());
    std::fflush(stdout);
    loop.run();
    return started->finish(kExitSuccess);
}

int serveCommand(const StartService &start, const std::vector<std::string> &command, bool shared)
{
    const sighandler_t previous = ignoreLostReaders();
    const RunDirectory place(shared);
    tools::EventLoop loop;
    const StartedService started = start(loop);
    setenv("KVO_PLATFORM_INTERFACE", "lo", 0);
    std::optional<tools::SupervisedCommand> supervised;
    supervised.emplace(
        loop, command, [&loop] { loop.stop(); },
        tools::SupervisedCommand::Options{.messagePrefix = "kvosim",
                                          .prepare = [previous] { std::signal(SIGPIPE, previous); }});
    loop.run();
    const int status = supervised->status();
    supervised.reset();  // ends the processes that the command has left running
    return started.finish(status);
}

}  // namespace kvosim
