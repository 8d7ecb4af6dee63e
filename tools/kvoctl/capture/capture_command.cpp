#include "kvoctl/capture/capture_command.h"

#include "common/command_line/progress_line.h"
#include "common/completions/completion.h"
#include "common/new_file.h"
#include "common/recording/anonymizer.h"
#include "kvoctl/command_line/arguments.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <unistd.h>

namespace kvoctl {

namespace {

constexpr int64_t kHighestRate = 100'000;
constexpr const char *kMaxRate = "max";

struct CaptureArguments {
    std::shared_ptr<std::string> file = std::make_shared<std::string>();
    const CLI::Option *force = nullptr;
    const CLI::Option *anonymize = nullptr;

    [[nodiscard]] bool writesToFile() const { return !file->empty() && *file != "-"; }
};

/// Calls @p action. A file that cannot be created is a mistake of the user.
template <class Action>
void asUsage(Action action)
{
    try {
        action();
    } catch (const std::runtime_error &error) {
        throw UsageError(error.what());
    }
}

/// Finds mistakes before the plant is read, which takes a while.
void checkFile(const std::filesystem::path &path, bool force)
{
    static_cast<void>(tools::checkReplaceable(path, force));
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        throw std::runtime_error("cannot create \"" + path.string() + "\": " + std::strerror(errno));
    }
}

void writeFile(const std::string &path, bool force, std::string_view text)
{
    tools::NewFile file(path, force);
    while (!text.empty()) {
        const ssize_t count = TEMP_FAILURE_RETRY(::write(file.descriptor(), text.data(), text.size()));
        if (count < 0) {
            throw std::runtime_error("cannot write \"" + path + "\": " + std::strerror(errno));
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    file.keep();
}

Document document(const Captured &captured, const std::string &file)
{
    Document notRead = Document::array();
    for (const NotRead &value : captured.notRead) {
        notRead.push_back({{"station", value.station.empty() ? Document(nullptr) : Document(value.station)},
                           {"key", value.key.empty() ? Document(nullptr) : Document(value.key)},
                           {"reason", value.reason}});
    }
    return {{"file", file},
            {"stations", captured.stations},
            {"not_read", std::move(notRead)},
            {"stopped", captured.stopped.empty() ? Document(nullptr) : Document(captured.stopped)}};
}

std::string counted(std::size_t count, const std::string &thing)
{
    return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

std::string summary(const Captured &captured, const std::string &file)
{
    const std::size_t comments = captured.notRead.size();
    const std::string notRead =
        comments == 0 ? ""
                      : "; " + counted(comments, "comment") + (comments == 1 ? " says" : " say") + " what could not be read";
    return '"' + file + "\" has " + counted(captured.stations, "station") + notRead;
}

Report capturePlant(const CaptureArguments &arguments, const CommandLine &commandLine, std::optional<unsigned> rate)
{
    const bool force = arguments.force->count() > 0;
    if (arguments.writesToFile()) {
        asUsage([&] { checkFile(*arguments.file, force); });
    } else if (force || commandLine.json()) {
        throw UsageError(std::string(force ? "--force" : "--json") +
                         " needs a FILE, because standard output contains the plant");
    }
    Captured captured = captureWithProgress(commandLine, rate);
    if (arguments.anonymize->count() > 0) {
        captured.text = tools::recording::Anonymizer().anonymizePlant(captured.text);
    }
    Report report{.exit = captured.stopped.empty() ? Exit::done : Exit::failed};
    if (arguments.writesToFile()) {
        writeFile(*arguments.file, force, captured.text);
        report.document = document(captured, *arguments.file);
        report.line = summary(captured, *arguments.file);
    } else {
        std::cout << captured.text;
        flushOutput();
    }
    if (!captured.stopped.empty()) {
        report.errorMessage = captured.stopped + "; the plant file is valid, but contains only what was read before";
    }
    return report;
}

CommandSetup setUpCapture(const CommandLine &commandLine)
{
    return [&commandLine](CLI::App &command) -> Action {
        CaptureArguments arguments;
        auto *file = command.add_option("FILE", *arguments.file, "The plant file; standard output if it is missing or \"-\"");
        tools::completions::completeFiles(file->type_name(""));
        const RateOption rate(command);
        arguments.force = addFlag(command, "--force", "Replace FILE if it exists");
        arguments.anonymize = addFlag(command, "--anonymize", "Replace addresses, names and texts, each consistently");
        return [=, &commandLine] { return capturePlant(arguments, commandLine, rate.rate()); };
    };
}

}  // namespace

RateOption::RateOption(CLI::App &command)
    : option_(command.add_option(
          "--rate", *value_,
          "Send at most RATE requests per second, or \"max\" for no limit (default: " + std::to_string(kCaptureRate) + ")"))
{
    const CLI::Validator number = wholeNumber(
        1, kHighestRate, "not a number of requests per second from 1 to " + std::to_string(kHighestRate) + ", or \"max\"");
    const auto read = [number](std::string &text) -> std::string {
        if (text != kMaxRate) {
            return number(text);
        }
        text = "0";
        return {};
    };
    option_->transform(CLI::Validator(read, ""))->type_name("RATE");
}

std::optional<unsigned> RateOption::rate() const { return *value_ == 0 ? std::nullopt : std::optional(*value_); }

Captured captureWithProgress(const CommandLine &commandLine, std::optional<unsigned> rate)
{
    tools::command_line::ProgressLine line(STDERR_FILENO);
    const auto show = [&](const CaptureProgress &progress) {
        if (line.isDue()) {
            const std::string stations =
                std::to_string(progress.stations) + " of " + std::to_string(progress.all) + " stations";
            line.write(commandLine.prefix() + ": reading the plant" + (progress.all == 0 ? "" : ": " + stations));
        }
    };
    return capture({.rate = rate, .progress = show});
}

void addCapture(CommandLine &commandLine)
{
    Family family(commandLine, "Traces and recordings");
    family.add("capture", "Read the plant from the service, and write a plant file for kvosim",
               {"plant.toml", "plant.toml --rate 20", "--anonymize > shared.toml"}, setUpCapture(commandLine));
}

}  // namespace kvoctl
