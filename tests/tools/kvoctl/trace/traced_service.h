// A simulated service in a process of its own, and kvoctl trace or record in another one.
#pragma once

#include "tools/common/tap/service.h"
#include "tools/kvoctl/support/kvoctl.h"

#include "common/recording/recording.h"
#include "common/tap/file_id.h"
#include "common/tap/peer.h"
#include "common/tap/tap.h"

#include "support/eventually.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace kvoctl_test {

using kvosim_test::Program;
using tap_test::answers;
using tap_test::connectError;
using tap_test::Service;

/// "kvoctl trace" or "kvoctl record", by default attached to all programs.
class Tracing {
public:
    explicit Tracing(const Arguments &words = {"trace"}) : program_(commandOf(words)) {}

    /// Waits until it has said that it has begun.
    [[nodiscard]] bool isAttached() const { return hasSaid("; Ctrl-C ends it"); }
    void signal(int number) const { program_.signal(number); }
    /// Stops it until SIGCONT.
    void pause() const
    {
        program_.signal(SIGSTOP);
        const std::string stat = "/proc/" + std::to_string(program_.id()) + "/stat";
        EXPECT_TRUE(support::eventually([&] { return kvosim_test::contentsOf(stat).find(") T ") != std::string::npos; }));
    }
    /// Returns its exit status, or minus the signal that killed it.
    int wait() { return program_.wait(); }
    /// Ends it at once: the second signal does not wait for anything.
    int stop()
    {
        program_.signal(SIGINT);
        program_.signal(SIGTERM);
        return program_.wait();
    }
    /// Ends it as Ctrl-C does.
    int end()
    {
        program_.signal(SIGINT);
        return program_.wait();
    }
    [[nodiscard]] bool hasWritten(const std::string &text) const { return program_.hasWritten(text); }
    [[nodiscard]] bool hasSaid(const std::string &text) const
    {
        return support::eventually([&] { return err().find(text) != std::string::npos; });
    }
    [[nodiscard]] std::string out() const { return program_.out(); }
    [[nodiscard]] std::string err() const { return program_.err(); }

private:
    static Arguments commandOf(const Arguments &words)
    {
        Arguments command{KVOCTL_PROGRAM};
        command.insert(command.end(), words.begin(), words.end());
        return command;
    }

    Program program_;
};

/// The exchanges of a recording. Throws if the file is not valid.
inline std::vector<tools::recording::Exchange> exchangesOf(const std::string &file)
{
    const auto recording = tools::recording::Recording::load(file);
    std::vector<tools::recording::Exchange> exchanges;
    for (std::size_t i = 0; i < recording.size(); ++i) {
        if (const tools::recording::Line line = recording.line(i); std::holds_alternative<tools::recording::Exchange>(line)) {
            exchanges.push_back(std::get<tools::recording::Exchange>(line));
        }
    }
    return exchanges;
}

/// The taps' files in the folder of the sockets.
inline std::vector<std::string> filesOfTaps()
{
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(tools::kSocketDirectory, ignored)) {
        if (const std::string name = entry.path().filename(); name.starts_with(".kvo_tap_")) {
            names.push_back(name);
        }
    }
    return names;
}

/// The name of the process that listens at the command socket; empty if none does.
inline std::string listener()
{
    try {
        const kvosim_test::Client client;
        return tools::tap::peerOf(client.get()).name;
    } catch (const std::exception &) {
        return "";
    }
}

/// Waits until programs find the service itself, and nothing of a tap is left.
inline void expectServiceInItsPlace()
{
    EXPECT_TRUE(support::eventually([] { return filesOfTaps().empty() && listener() == "kvosim"; }))
        << "the listener is \"" << listener() << "\", and the taps' files are " << testing::PrintToString(filesOfTaps());
    EXPECT_TRUE(answers());
}

}  // namespace kvoctl_test
