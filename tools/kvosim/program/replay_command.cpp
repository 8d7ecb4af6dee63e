#include "kvosim/program/replay_command.h"

#include "common/command_line/mistake.h"
#include "common/completions/completion.h"
#include "common/new_file.h"
#include "kvosim/program/recording_file.h"
#include "kvosim/replay/replay.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>
#include <unistd.h>

namespace kvosim {

namespace {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitNotAsRecorded = 4;

std::string mistakeInSpeed(const std::string &text)
{
    return Speed::parse(text) ? std::string() : "write a factor from 0.001 to 1000000, or max";
}

std::string jsonOf(const ReplayReport &report)
{
    return report.document().dump(-1, ' ', false, tools::Json::error_handler_t::replace) + '\n';
}

void write(tools::NewFile &file, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t size = ::write(file.descriptor(), text.data(), text.size());
        if (size < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "cannot write the report");
        }
        text.remove_prefix(size < 0 ? 0 : static_cast<std::size_t>(size));
    }
    file.keep();
}

/// What a replay needs from its start to its end.
struct Session {
    ReplayArguments arguments{};
    ReplayOptions options{};
    Recording recording{};
    std::optional<Plant> plant{};
    std::unique_ptr<tools::NewFile> reportFile{};
    std::optional<Replay> replay{};

    void begin(tools::EventLoop &loop);
    [[nodiscard]] int finish(int status);
};

void Session::begin(tools::EventLoop &loop)
{
    replay.emplace(loop, recording, std::move(plant), options);
    if (replay->isEmpty()) {
        std::fprintf(stderr, "kvosim: %s: the recording contains no requests and no events\n", arguments.recording.c_str());
    }
}

int Session::finish(int status)
{
    const ReplayReport report = replay->report();
    std::fputs((arguments.json ? jsonOf(report) : report.text()).c_str(), stderr);
    bool isWritten = true;
    try {
        if (reportFile) {
            write(*reportFile, jsonOf(report));
        }
    } catch (const std::exception &error) {  // the program has run, so its status counts more
        tools::command_line::printError("kvosim", error.what());
        isWritten = false;
    }
    if (status != 0) {
        return status;
    }
    return !report.isGood() ? kExitNotAsRecorded : isWritten ? kExitSuccess : kExitFailure;
}

}  // namespace

std::vector<CLI::Option *> addReplayOptions(CLI::App &command, ReplayArguments &arguments)
{
    CLI::Option *speed = command
                             .add_option("--speed", arguments.speed,
                                         "Divides all recorded times: 1, any factor such as 0.5 or 10, or max for no pauses "
                                         "at all (default: 1)")
                             ->type_name("FACTOR")
                             ->check(mistakeInSpeed);
    tools::completions::completeWords(speed, {"1", "10", "max"});
    CLI::Option *strict = command.add_flag("--strict", arguments.strict,
                                           "Answer each recorded request only once, and require all of them in their order");
    CLI::Option *json =
        command.add_flag("--json", arguments.json, "Print the report as one line of JSON, on standard error too");
    CLI::Option *report = command.add_option("--report", arguments.report, "Also write the report to this file, as JSON");
    tools::completions::completeFiles(report->type_name("FILE"));
    return {speed, strict, json, report};
}

StartService replayOf(const ReplayArguments &arguments, const ServiceArguments &service)
{
    const ServiceOptions serves = serviceOptions(service);
    ReplayOptions options;
    options.file = arguments.recording;
    options.speed = *Speed::parse(arguments.speed);
    options.strict = arguments.strict;
    options.verbose = service.verbose;
    options.socketMode = serves.socketMode;
    const auto session = std::make_shared<Session>();
    session->arguments = arguments;
    session->options = std::move(options);
    session->recording = loadRecording(arguments.recording);
    if (!service.plant.empty()) {
        session->plant = loadWithProgress(service.plant);
    }
    if (!arguments.report.empty()) {
        session->reportFile = std::make_unique<tools::NewFile>(arguments.report, true);
    }
    return [session](tools::EventLoop &loop) {
        session->begin(loop);
        return StartedService{.service = std::shared_ptr<void>(session.get(), [session](void *) { session->replay.reset(); }),
                              .end = [session, &loop] { session->replay->end([&loop] { loop.stop(); }); },
                              .readyLine = "kvosim: serving " + std::to_string(session->replay->recordedRequests()) +
                                           " recorded requests at " + session->options.socket.string(),
                              .finish = [session](int status) { return session->finish(status); }};
    };
}

}  // namespace kvosim
