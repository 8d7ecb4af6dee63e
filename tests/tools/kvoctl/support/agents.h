// Runs "kvoctl agent run" as a process, with a service that knows its station, and with lines to push.
#pragma once

#include "support/remote_service.h"
#include "support/usb_events.h"
#include "tools/kvoctl/support/watching.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace kvoctl_test {

inline constexpr unsigned kSession = 3;
inline const std::string kStationText =
    "0A000005 00000400 00000300 00000020 00000003 st1 00000000 00000000 00000001 00000002 00000003 00000004 89ABCDEF ";

/// A service that knows the station in focus. The agent requests it with the address in the platform's byte order.
inline support::Script knowsFocus()
{
    return support::acceptsAll({{"getExDescByIP 0500000A", kStationText},
                                {"getExDescByName st1", kStationText},
                                {"getKVOt2m2n=0A000005", "1:2,3"},
                                {"getMCPAddress=0A000005", "mcpaddr=12"}});
}

inline const Arguments kByAddress{"--focus", "10.0.0.5"};

class RunningAgent {
public:
    explicit RunningAgent(const Arguments &more = {}, const Arguments &focus = kByAddress) : program_(command(more, focus)) {}
    RunningAgent(const RunningAgent &) = delete;
    RunningAgent &operator=(const RunningAgent &) = delete;
    ~RunningAgent() { endInput(); }

    /// Writes to its standard input.
    void type(std::string_view text) const
    {
        const ssize_t written = write(input_, text.data(), text.size());
        static_cast<void>(written);  // tests see in the output if something is missing
    }
    void endInput() { close(std::exchange(input_, -1)); }

    [[nodiscard]] bool hasWritten(const std::string &text) const { return program_.hasWritten(text); }
    void signal(int number) const { program_.signal(number); }
    int wait() { return program_.wait(); }
    int stop(int number = SIGINT)
    {
        signal(number);
        return wait();
    }
    [[nodiscard]] std::string out() const { return program_.out(); }
    [[nodiscard]] std::string err() const { return program_.err(); }

private:
    Arguments command(const Arguments &more, const Arguments &focus)
    {
        const std::string fifo = directory_ / "input";
        mkfifo(fifo.c_str(), 0600);
        input_ = open(fifo.c_str(), O_RDWR | O_CLOEXEC);  // O_RDWR, so that neither side waits for the other
        Arguments all{"sh", "-c", "exec \"$0\" \"$@\" < '" + fifo + "'", KVOCTL_PROGRAM, "agent", "run"};
        all.insert(all.end(), focus.begin(), focus.end());
        all.insert(all.end(), {"--remote", "127.0.0.1", "--session", std::to_string(kSession)});
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    kvosim_test::TemporaryDirectory directory_;
    int input_ = -1;
    kvosim_test::Program program_;
};

}  // namespace kvoctl_test
