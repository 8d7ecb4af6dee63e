// Runs the event loop of the tap on the main thread.
#include "kvoctl/trace/session.h"

#include "common/signals.h"
#include "common/supervised_command.h"

#include <csignal>
#include <exception>
#include <sys/epoll.h>

namespace kvoctl {

namespace {

using tools::EventLoop;

constexpr const char *kCannotBeStopped =
    "Ctrl-Z cannot stop the trace, because the requests of all programs pass through it; Ctrl-C ends it";

/// Ends a tap that is attached to running programs.
class Ending {
public:
    explicit Ending(EventLoop &loop) : loop_(loop) {}

    void setTap(tools::tap::Tap *tap) noexcept { tap_ = tap; }

    /// Completes what is under way.
    void begin()
    {
        if (!begun_) {
            begun_ = true;
            tap_->end([this] { loop_.stop(); });
        }
    }
    /// A second order ends at once.
    void order()
    {
        if (begun_) {
            loop_.stop();
        }
        begin();
    }

private:
    EventLoop &loop_;
    tools::tap::Tap *tap_ = nullptr;
    bool begun_ = false;
};

/// Passes on what the tap reports, except that it has given up.
class SessionObserver : public tools::tap::Observer {
public:
    /// @p givenUp  called with the reason
    SessionObserver(tools::tap::Observer &observer, std::function<void(const std::string &)> givenUp)
        : observer_(observer), givenUp_(std::move(givenUp))
    {
    }

    void onExchange(const Peer &peer, Exchange exchange) override { observer_.onExchange(peer, std::move(exchange)); }
    void onNote(Microseconds at, const std::string &text) override { observer_.onNote(at, text); }
    void onGivenUp(const std::string &reason) override { givenUp_(reason); }

private:
    tools::tap::Observer &observer_;
    std::function<void(const std::string &)> givenUp_;
};

std::exception_ptr failureOf(const std::function<void()> &action)
{
    try {
        action();
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

void watchOnce(EventLoop &loop, int descriptor, const std::function<void()> &action)
{
    loop.watch(descriptor, EPOLLIN, [&loop, descriptor, action](uint32_t /*events*/) {
        loop.unwatch(descriptor);
        action();
    });
}

}  // namespace

Session::Session(SessionOptions options)
    : options_(std::move(options)), start_(tools::Clock::now()),
      startTime_(std::chrono::floor<Microseconds>(std::chrono::system_clock::now()))
{
}

Microseconds Session::elapsed() const { return std::chrono::duration_cast<Microseconds>(tools::Clock::now() - start_); }

void Session::attach(tools::tap::Observer &observer, const SessionOutput &output)
{
    EventLoop loop;
    Ending ending(loop);
    const tools::Signals signals(loop, {SIGINT, SIGTERM, SIGHUP}, [&](const auto & /*signal*/) { ending.order(); });
    // A tap that is stopped stops all programs.
    const tools::Signals stops(loop, {SIGTSTP, SIGTTIN, SIGTTOU}, [&, isSaid = false](const signalfd_siginfo &signal) mutable {
        if (signal.ssi_signo == SIGTSTP && !std::exchange(isSaid, true)) {
            observer.onNote(elapsed(), kCannotBeStopped);
        }
    });
    SessionObserver all(observer, [&](const std::string &reason) {
        givenUpReason_ = reason;
        loop.after(std::chrono::milliseconds(0), [&] { ending.begin(); });  // the tap is still at work here
    });
    const std::unique_ptr<tools::tap::Tap> tap = tools::tap::attach(loop, all, start_);
    ending.setTap(tap.get());
    const std::exception_ptr failure = failureOf([&] {
        output.open();
        watchOnce(loop, output.start(), [&] { ending.begin(); });
        if (options_.length) {
            loop.after(*options_.length, [&] { ending.begin(); });
        }
        loop.run();
    });
    if (failure) {  // the programs' requests are still completed
        ending.begin();
        loop.run();
        std::rethrow_exception(failure);
    }
}

/// If the output ends, the program continues: its requests pass through the tap until it ends itself.
int Session::runProgram(tools::tap::Observer &observer, const SessionOutput &output)
{
    EventLoop loop;
    SessionObserver all(observer, [&](const std::string &reason) { givenUpReason_ = reason; });
    const tools::tap::ProgramTap program = tools::tap::tapOfProgram(loop, all, start_);
    output.open();
    const tools::SupervisedCommand command(loop, options_.command, [&] { program.tap->end([&loop] { loop.stop(); }); },
                                           {.messagePrefix = options_.messagePrefix, .prepare = program.enter});
    // After the program was started: it must not inherit a blocked SIGHUP.
    const tools::Signals hangUp(loop, {SIGHUP}, [&](const signalfd_siginfo &signal) {
        if (signal.ssi_code != SI_KERNEL) {
            command.signal(SIGHUP);
        }
    });
    watchOnce(loop, output.start(), [] {});
    if (options_.length) {
        loop.after(*options_.length, [&] { command.signal(SIGTERM); });
    }
    loop.run();
    return command.status();
}

int Session::run(tools::tap::Observer &observer, const SessionOutput &output)
{
    if (!options_.command.empty()) {
        return runProgram(observer, output);
    }
    attach(observer, output);
    return 0;
}

}  // namespace kvoctl
