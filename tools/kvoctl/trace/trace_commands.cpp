// Sets up the queue between the tap and the output, and reports at the end what was seen.
#include "kvoctl/trace/trace_commands.h"

#include "common/completions/completion.h"
#include "common/new_file.h"
#include "common/recording/anonymizer.h"
#include "common/refused.h"
#include "common/tap/tap.h"
#include "kvoctl/capture/capture_command.h"
#include "kvoctl/command_line/arguments.h"
#include "kvoctl/command_line/station_argument.h"
#include "kvoctl/trace/messages.h"
#include "kvoctl/trace/observers.h"
#include "kvoctl/trace/record_output.h"
#include "kvoctl/trace/recording_file.h"
#include "kvoctl/trace/session.h"
#include "kvoctl/trace/size_argument.h"
#include "kvoctl/trace/trace_output.h"

#include <kvo_hws/result.h>
#include <kvo_hws/service.h>

#include <iostream>
#include <sstream>
#include <unistd.h>

namespace kvoctl {

namespace {

constexpr std::size_t kQueueSize = 16UL * 1024 * 1024;
constexpr int64_t kLongestRun = 10LL * 365 * 24 * 3600;  // seconds

const std::string kAboutProgram =
    R"(With "-- COMMAND", kvoctl runs that program and observes no other one. The program has a /tmp/kvo_hws of its own, which leads to
the service of this machine. kvoctl forwards signals to it, and ends with its exit status: 128 + the signal if a signal ended it,
127 if it was not found, 126 if it cannot be executed, 125 if it cannot get a /tmp/kvo_hws of its own.
)";

// ---- What both commands do ----

struct RunArguments {
    Argument<int64_t> length{};

    static RunArguments addTo(CLI::App &command)
    {
        tools::completions::completeOptionalCommand(&command);
        command.footer(kAboutProgram + "\n" + command.get_footer());
        auto seconds = std::make_shared<int64_t>();
        auto *option = command.add_option("--for", *seconds, "End after SECONDS; a program after \"--\" gets SIGTERM then");
        option->transform(wholeNumber(1, kLongestRun, "not a whole number of seconds greater than 0"))->type_name("SECONDS");
        return {{option, seconds}};
    }
    [[nodiscard]] SessionOptions options(const CommandLine &commandLine) const
    {
        SessionOptions options{.messagePrefix = commandLine.prefix()};
        if (const auto seconds = length.valueIfGiven()) {
            options.length = std::chrono::seconds(*seconds);
        }
        if (commandLine.program()) {
            if (commandLine.program()->empty()) {
                throw UsageError("give the program to run after \"--\", or leave out the \"--\"");
            }
            options.command = *commandLine.program();
        }
        return options;
    }
};

bool wasStarted(int programStatus)
{
    constexpr int kNotPrepared = 125;
    constexpr int kNotFound = 127;
    return programStatus < kNotPrepared || programStatus > kNotFound;
}

const char *whyNothing(const CommandLine &commandLine)
{
    return commandLine.program() ? "The program sent no request through /tmp/kvo_hws/cmd_sock."
                                 : "No program used /tmp/kvo_hws/cmd_sock. Programs in a container or under \"kvosim\n"
                                   "run\" have a /tmp/kvo_hws of their own, and are not seen.";
}

/// A tap that has given up has failed, unless a program has a status of its own.
Exit statusOf(int programStatus, const Session &session)
{
    return programStatus == 0 && !session.givenUpReason().empty() ? Exit::failed : static_cast<Exit>(programStatus);
}

/// The tap could not take its place.
Report reportRefusal(const tools::Refused &refusal)
{
    const bool hasService = KVO_REQUEST(KVO_HWS_isInitComplete)().code != KVO_HWS_NO_SERVICE;
    const int32_t result = hasService ? KVO_HWS_FAILED : KVO_HWS_NO_SERVICE;
    return {.document = {{"error", {{"code", result}, {"meaning", refusal.what()}}}},
            .exit = hasService ? Exit::failed : Exit::noService,
            .errorMessage = refusal.what()};
}

// ---- kvoctl trace ----

struct TraceArguments {
    RunArguments run{};
    std::shared_ptr<std::vector<std::string>> programs{};
    std::shared_ptr<std::vector<std::string>> commands{};
    std::shared_ptr<std::vector<std::string>> stations{};
    CLI::Option *failures = nullptr;
    CLI::Option *summary = nullptr;
    CLI::Option *repair = nullptr;

    /// The service resolves the names of stations.
    [[nodiscard]] Filter filter() const
    {
        Filter filter{.programs = *programs, .commands = *commands, .failures = failures->count() > 0};
        for (const std::string &station : *stations) {
            filter.stations.push_back({stationAddress(station), isStationName(station) ? station : ""});
        }
        return filter;
    }
};

TraceOutput::Format textFormat(StartTime start, Messages &messages)
{
    return [&messages, lines = TraceLines(start)](const Observed &observed) mutable -> std::optional<std::string> {
        if (const auto *note = std::get_if<Note>(&observed)) {
            messages.add(*note);
            return std::nullopt;
        }
        const auto &[peer, exchange] = std::get<ObservedExchange>(observed);
        return lines.format(entryOf(peer, exchange), layoutOf(STDOUT_FILENO));
    };
}

TraceOutput::Format jsonFormat(StartTime start)
{
    return [start](const Observed &observed) -> std::optional<std::string> {
        if (const auto *note = std::get_if<Note>(&observed)) {
            return compact(traceDocument(start, *note));
        }
        const auto &[peer, exchange] = std::get<ObservedExchange>(observed);
        return compact(traceDocument(start, peer, exchange));
    };
}

/// After lines the summary goes to standard error, so that a reader of standard output gets only lines.
void writeTextSummary(const TraceObserver &observer, const Session &session, Microseconds time, uint64_t notShown, bool isAlone,
                      const char *whyNothing, Messages &messages)
{
    std::ostringstream text;
    observer.summary().write(text, session.startTime(), time, notShown, whyNothing,
                             layoutOf(isAlone ? STDOUT_FILENO : STDERR_FILENO));
    if (isAlone) {
        std::cout << text.str();
        flushOutput();
    } else {
        std::string lines = text.str();
        lines.pop_back();  // the last line feed
        messages.addLines(lines);
    }
}

Report traceUntilTheEnd(const TraceArguments &arguments, const CommandLine &commandLine)
{
    const bool isAlone = arguments.summary->count() > 0;
    const Filter filter = arguments.filter();
    Session session(arguments.run.options(commandLine));
    ObservedQueue queue(kQueueSize);
    TraceObserver observer(filter, queue, !isAlone);
    Messages messages(commandLine.prefix(), session.startTime());
    std::optional<TraceOutput> output;
    const auto start = [&] {
        messages.begin();
        const bool isJson = commandLine.json() && !isAlone;
        if (!commandLine.program()) {
            queue.put(Note{session.elapsed(), "the trace has begun; Ctrl-C ends it"});
        }
        output.emplace(queue, isJson ? jsonFormat(session.startTime()) : textFormat(session.startTime(), messages));
        return output->endedDescriptor();
    };
    const int status = session.run(observer, {.open = [] {}, .start = start});
    const Microseconds time = session.elapsed();
    if (commandLine.json()) {
        const uint64_t notShown =
            output->finish(compact(observer.summary().document(session.startTime(), time, queue.dropped())));
        if (notShown > queue.dropped()) {
            messages.add(amountOf(notShown, "exchange") + " not shown: the reader of the output was too slow");
        }
    } else if (const uint64_t notShown = output->finish(); observer.summary().hasSeen() || wasStarted(status)) {
        writeTextSummary(observer, session, time, notShown, isAlone, whyNothing(commandLine), messages);
    }
    messages.finish();
    output->check();
    return {.exit = statusOf(status, session), .errorMessage = session.givenUpReason()};
}

Report repair()
{
    const std::vector<std::filesystem::path> repaired = tools::tap::repair();
    Report report{.document = {{"repaired", Document::array()}}};
    std::string text;
    for (const auto &path : repaired) {
        report.document["repaired"].push_back(path.string());
        text += (text.empty() ? "put back: " : ", ") + path.string();
    }
    report.line = text.empty() ? "nothing to repair: no trace has left a socket aside" : text;
    return report;
}

Report trace(const TraceArguments &arguments, const CommandLine &commandLine)
{
    try {
        return arguments.repair->count() > 0 ? repair() : traceUntilTheEnd(arguments, commandLine);
    } catch (const tools::Refused &refusal) {
        return reportRefusal(refusal);
    }
}

/// A repeatable option with one value.
std::shared_ptr<std::vector<std::string>> addList(CLI::App &command, const std::string &name, const std::string &type,
                                                  const std::string &help)
{
    auto values = std::make_shared<std::vector<std::string>>();
    command.add_option(name, *values, help)->type_name(type)->allow_extra_args(false);
    return values;
}

std::string mistakeInCommand(const std::string &text)
{
    const bool isWord = !text.empty() && text.find_first_of("= *,") == std::string::npos;
    return isWord ? "" : "\"" + text + "\" is not the first word of a request, such as getMCPAddress";
}

CommandSetup setUpTrace(const CommandLine &commandLine)
{
    return [&commandLine](CLI::App &command) -> Action {
        TraceArguments arguments;
        arguments.run = RunArguments::addTo(command);
        arguments.programs = addList(command, "--program", "NAME|PID", "Show only this program; may be repeated");
        arguments.commands =
            addList(command, "--command", "NAME", "Show only requests or events with this first word; may be repeated");
        command.get_option("--command")->check({mistakeInCommand, ""});
        arguments.stations = addStationOption(
            command, "--station",
            std::string("Show only requests and events about this station; may be repeated: ") + kStationForms);
        arguments.failures = addFlag(command, "--failures", "Show only requests that were refused, or got no complete reply");
        arguments.summary = addFlag(command, "--summary", "Show only a summary at the end");
        arguments.repair = addFlag(command, "--repair", "Put back the service's socket that a killed trace has left aside");
        return [=, &commandLine, &command] {
            if (arguments.repair->count() > 0 && (command.count_all() > 2 || commandLine.program())) {
                throw UsageError("--repair cannot be combined with other options or a program");
            }
            return trace(arguments, commandLine);
        };
    };
}

// ---- kvoctl record ----

struct RecordArguments {
    RunArguments run{};
    std::shared_ptr<std::string> file{};
    CLI::Option *force = nullptr;
    CLI::Option *anonymize = nullptr;
    CLI::Option *capture = nullptr;
    std::optional<RateOption> rate{};
    Argument<uint64_t> maxSize{};
};

struct Recorded {
    std::string file;
    Totals totals;
    uint64_t exchanges;  ///< in the file
    unsigned programs;
    uint64_t bytes;
    Microseconds time;
    uint64_t missing;  ///< exchanges for which the disk was too slow
    std::string fullReason;
    std::optional<std::size_t> stations;  ///< of the plant, if it was captured
};

Document document(const Recorded &recorded)
{
    Document all{{"file", recorded.file}, {"seconds", static_cast<double>(recorded.time.count()) / 1'000'000}};
    all.update(recorded.totals.document());
    all.update({{"programs", recorded.programs},
                {"exchanges", recorded.exchanges},
                {"file_bytes", recorded.bytes},
                {"missing", recorded.missing},
                {"full", recorded.fullReason.empty() ? Document(nullptr) : Document(recorded.fullReason)},
                {"stations", recorded.stations ? Document(*recorded.stations) : Document(nullptr)}});
    return all;
}

void addRecorded(Messages &messages, const Recorded &recorded, const char *whyNothing)
{
    const std::string file = '"' + recorded.file + '"';
    const std::string time = " in " + secondsText(recorded.time);
    if (!recorded.fullReason.empty()) {
        messages.add("the recording ended early: " + recorded.fullReason + "; " + file + " is valid, with " +
                     amountOf(recorded.exchanges, "exchange"));
    }
    if (recorded.missing > 0) {
        messages.add(amountOf(recorded.missing, "exchange") + " missing in " + file + ": the disk was too slow");
    }
    if (recorded.totals.all() == 0) {
        messages.add("no request was seen" + time + "; " + file + " has no exchange");
        messages.addLines(whyNothing);
        return;
    }
    messages.add(recorded.totals.text() + " of " + amountOf(recorded.programs, "program") + time + "; " + file + " has " +
                 amountOf(recorded.bytes, "byte"));
}

/// A disk that is full is a failure; a size that the user has chosen is not.
Exit statusOf(int programStatus, const Session &session, const tools::recording::Writer &writer)
{
    const bool failed = !writer.fullReason().empty() && !writer.isAtMaxSize();
    return programStatus == 0 && failed ? Exit::ownFailure : statusOf(programStatus, session);
}

/// The names of programs stay: they are needed to find a fault.
void anonymize(tools::recording::Anonymizer &anonymizer, Observed &observed)
{
    if (auto *note = std::get_if<Note>(&observed)) {
        *note = anonymizer.anonymize(*note);
    } else if (auto *exchange = std::get_if<ObservedExchange>(&observed)) {
        exchange->exchange = anonymizer.anonymize(std::move(exchange->exchange));
    }
}

/// Calls @p action. A file that cannot be created is a mistake of the user.
template <class Action>
auto withFile(Action action)
{
    try {
        return action();
    } catch (const std::runtime_error &error) {
        throw UsageError(error.what());
    }
}

std::unique_ptr<RecordingFile> createFile(const RecordArguments &arguments, StartTime start)
{
    const tools::recording::Writer::Options options{.force = arguments.force->count() > 0,
                                                    .maxSize = arguments.maxSize.valueIfGiven()};
    return withFile([&] { return std::make_unique<RecordingFile>(*arguments.file, options, start); });
}

/// @p anonymizer  null if everything stays
RecordOutput::Prepare prepareWith(Messages &messages, tools::recording::Anonymizer *anonymizer)
{
    return [&messages, anonymizer](Observed &observed) {
        // The user sees the real addresses; only the file is for others.
        if (const auto *note = std::get_if<Note>(&observed)) {
            messages.add(*note);
        }
        if (anonymizer != nullptr) {
            anonymize(*anonymizer, observed);
        }
    };
}

/// The plant before the recording begins, so that the requests for it are not recorded. A recording without the plant that the user
/// wants is of no use, so a failure is one of the command.
std::optional<Captured> captureIfWanted(const RecordArguments &arguments, const CommandLine &commandLine)
{
    if (arguments.capture->count() == 0) {
        return std::nullopt;
    }
    withFile([&] { tools::checkReplaceable(*arguments.file, arguments.force->count() > 0); });
    Captured captured = captureWithProgress(commandLine, arguments.rate->rate());
    if (!captured.stopped.empty()) {
        throw Failure(KVO_HWS_FAILED, captured.stopped + ", so the plant could not be captured and nothing was recorded");
    }
    return captured;
}

void writePlant(tools::recording::Writer &writer, const std::string &toml)
{
    std::istringstream text(toml);
    for (tools::recording::PlantLine line; std::getline(text, line.text);) {
        writer.add(line);
    }
    if (!writer.flush() || writer.isAtMaxSize()) {
        throw UsageError("the plant, which has " + amountOf(toml.size(), "byte") + ", does not fit: " + writer.fullReason());
    }
}

Report recordUntilTheEnd(const RecordArguments &arguments, const CommandLine &commandLine)
{
    const SessionOptions options = arguments.run.options(commandLine);
    const std::optional<Captured> plant = captureIfWanted(arguments, commandLine);
    Session session(options);
    const std::unique_ptr<RecordingFile> file = createFile(arguments, session.startTime());
    tools::recording::Anonymizer anonymizer;
    const bool anonymizes = arguments.anonymize->count() > 0;
    if (plant) {
        writePlant(file->writer(), anonymizes ? anonymizer.anonymizePlant(plant->text) : plant->text);
    }
    ObservedQueue queue(kQueueSize);
    RecordObserver observer(queue);
    Messages messages(commandLine.prefix(), session.startTime());
    if (plant && !plant->notRead.empty()) {
        messages.add(amountOf(plant->notRead.size(), "comment") + " in the captured plant: some values could not be read");
    }
    std::optional<RecordOutput> output;
    const auto start = [&] {
        if (!commandLine.program()) {
            messages.add("recording to \"" + *arguments.file + "\"; Ctrl-C ends it");
        }
        messages.begin();
        output.emplace(queue, file->writer(), prepareWith(messages, anonymizes ? &anonymizer : nullptr));
        return output->endedDescriptor();
    };
    const int status = session.run(observer, {.open = [&] { withFile([&] { file->keep(); }); }, .start = start});
    const Microseconds time = session.elapsed();
    output->finish();
    tools::recording::Writer &writer = file->writer();
    if (queue.dropped() > 0) {
        writer.add(Note{time, amountOf(queue.dropped(), "exchange") + " missing: the disk was too slow"});
        writer.flush();
    }
    const Recorded recorded{.file = *arguments.file,
                            .totals = observer.totals(),
                            .exchanges = output->written(),
                            .programs = output->programs(),
                            .bytes = writer.size(),
                            .time = time,
                            .missing = queue.dropped(),
                            .fullReason = writer.fullReason(),
                            .stations = plant ? std::optional(plant->stations) : std::nullopt};
    addRecorded(messages, recorded, whyNothing(commandLine));
    messages.finish();
    return {.document = document(recorded), .exit = statusOf(status, session, writer), .errorMessage = session.givenUpReason()};
}

Report record(const RecordArguments &arguments, const CommandLine &commandLine)
{
    try {
        return recordUntilTheEnd(arguments, commandLine);
    } catch (const tools::Refused &refusal) {
        return reportRefusal(refusal);
    }
}

Argument<uint64_t> addMaxSize(CLI::App &command)
{
    auto size = std::make_shared<uint64_t>();
    const auto read = [](std::string &text) -> std::string {
        const std::optional<uint64_t> bytes = parseSize(text);
        if (!bytes) {
            return "\"" + text + "\" is not a size; write a number of bytes, or a number and k, M or G, such as 20M";
        }
        text = std::to_string(*bytes);
        return {};
    };
    auto *option =
        command.add_option("--max-size", *size, "End when the file would become larger: bytes, or with a unit, as in 20M");
    return {option->transform(CLI::Validator(read, ""))->type_name("SIZE"), size};
}

CommandSetup setUpRecord(const CommandLine &commandLine)
{
    return [&commandLine](CLI::App &command) -> Action {
        RecordArguments arguments;
        arguments.run = RunArguments::addTo(command);
        arguments.file = std::make_shared<std::string>();
        auto *file = command.add_option("FILE", *arguments.file, "The file that is created, readable only for its owner");
        file->required()->type_name("");
        tools::completions::completeFiles(file);
        arguments.force = addFlag(command, "--force", "Replace an existing file");
        arguments.anonymize = addFlag(command, "--anonymize", "Replace addresses, names and texts, each consistently");
        arguments.capture = addFlag(command, "--capture", "First read the plant from the service, and store it too");
        arguments.rate.emplace(command);
        arguments.rate->option()->needs(arguments.capture);
        arguments.maxSize = addMaxSize(command);
        return [=, &commandLine] { return record(arguments, commandLine); };
    };
}

}  // namespace

void addTraceCommands(CommandLine &commandLine)
{
    Family family(commandLine, "Traces and recordings");
    family.add("trace", "Show what passes between programs and the service, until Ctrl-C",
               {"", "--failures --for 60", "--program panel --station 10.0.0.5", "--summary -- ./panel-tests", "--repair"},
               setUpTrace(commandLine));
    family.add("record", "Keep what passes between programs and the service in a file, until Ctrl-C",
               {"fault.rec", "fault.rec --for 3600 --max-size 20M", "fault.rec --capture --anonymize -- ./panel-tests"},
               setUpRecord(commandLine));
}

}  // namespace kvoctl
