#include "kvoctl/recording/anonymize.h"

#include "common/completions/completion.h"
#include "common/recording/anonymizer.h"
#include "common/recording/recording.h"
#include "common/recording/writer.h"
#include "kvoctl/command_line/arguments.h"

#include <iostream>
#include <memory>
#include <sstream>
#include <system_error>

namespace kvoctl {

namespace {

using tools::recording::Anonymizer;
using tools::recording::Line;
using tools::recording::Recording;

Recording load(const std::string &path)
{
    try {
        return Recording::load(path);
    } catch (const tools::recording::RecordingError &error) {
        throw UsageError(error.what());
    } catch (const std::system_error &error) {
        throw UsageError(path + ": " + error.code().message());
    }
}

}  // namespace

void writeAnonymized(const Recording &recording, Anonymizer &anonymizer, const std::function<void(const Line &)> &write)
{
    std::istringstream plant(anonymizer.anonymizePlant(recording.plant()));
    for (tools::recording::PlantLine line; std::getline(plant, line.text);) {
        write(Line(line));
    }
    for (const auto &[number, process] : recording.processes()) {
        write(Line(process));
    }
    for (std::size_t i = 0; i < recording.size(); ++i) {
        write(anonymizer.anonymize(recording.line(i)));
    }
}

namespace {

Report writeToStandardOutput(const Recording &recording)
{
    using tools::recording::Start;
    using tools::recording::Version;
    const auto write = [](const Line &line) {
        if (!(std::cout << format(line) << '\n')) {
            flushOutput();  // throws with the reason
        }
    };
    Anonymizer anonymizer;
    write(Version{});
    write(Start{recording.start()});
    writeAnonymized(recording, anonymizer, write);
    flushOutput();
    return {};
}

std::string counted(std::size_t count, const std::string &one, const std::string &several)
{
    return std::to_string(count) + ' ' + (count == 1 ? one : several);
}

Report writeToFile(const Recording &recording, const std::string &input, const std::string &output, bool force)
{
    std::error_code ignored;
    if (std::filesystem::equivalent(input, output, ignored)) {
        throw UsageError("\"" + output + "\" is the recording itself; write to another file");
    }
    const auto writer = [&] {
        try {
            return tools::recording::Writer(output, {.force = force, .maxSize = {}}, recording.start());
        } catch (const std::runtime_error &error) {
            throw UsageError(error.what());
        }
    };
    tools::recording::Writer file = writer();
    Anonymizer anonymizer;
    writeAnonymized(recording, anonymizer, [&](const Line &line) { file.add(line); });
    if (!file.flush()) {
        throw std::runtime_error("cannot write \"" + output + "\": " + file.fullReason() +
                                 "; the file contains the beginning of the recording");
    }
    return {.document = {{"lines", recording.size()}, {"addresses", anonymizer.addresses()}, {"texts", anonymizer.texts()}},
            .line = "replaced " + counted(anonymizer.addresses(), "address", "addresses") + " and " +
                    counted(anonymizer.texts(), "text", "texts") + " in " + counted(recording.size(), "line", "lines")};
}

Action setUpAnonymize(CLI::App &command, const CommandLine &commandLine)
{
    auto input = std::make_shared<std::string>();
    auto output = std::make_shared<std::string>();
    tools::completions::completeFiles(command.add_option("FILE", *input, "the recording")->type_name("")->required());
    auto *given = command.add_option("--output", *output, "Write to FILE, and not to standard output")->type_name("FILE");
    tools::completions::completeFiles(given);
    const CLI::Option *force = addFlag(command, "--force", "Replace FILE if it exists")->needs(given);
    return [=, &commandLine] {
        if (given->count() == 0 && commandLine.json()) {
            throw UsageError("--json needs --output, because standard output contains the recording or the JSON document");
        }
        const Recording recording = load(*input);
        return given->count() == 0 ? writeToStandardOutput(recording)
                                   : writeToFile(recording, *input, *output, force->count() > 0);
    };
}

}  // namespace

void addAnonymize(CommandLine &commandLine)
{
    Family recordings(commandLine, "Traces and recordings");
    recordings.add("anonymize", "Replace the addresses, names and texts in a recording",
                   {"plant.rec > shared.rec", "plant.rec --output shared.rec"},
                   [&commandLine](CLI::App &command) { return setUpAnonymize(command, commandLine); });
}

}  // namespace kvoctl
