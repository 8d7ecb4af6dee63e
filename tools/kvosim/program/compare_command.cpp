#include "kvosim/program/compare_command.h"

#include "common/command_line/progress_line.h"
#include "common/completions/completion.h"
#include "common/refused.h"
#include "kvosim/compare/comparison.h"
#include "kvosim/compare/comparison_text.h"
#include "kvosim/plant_file/plant_file.h"
#include "kvosim/program/recording_file.h"

#include <iostream>
#include <stdexcept>
#include <unistd.h>

namespace kvosim {

namespace {

using tools::recording::Recording;

constexpr int kExitDifferent = 4;

constexpr const char *kExamples =
    R"(Asks a simulated service everything that programs asked during a recording, and compares the replies. The plant is the one
that "kvoctl record --capture" stored in the recording. No service has to run, and no time passes: the clock of the simulated
plant follows the recorded times.

The total is a figure for how much kvosim is like the recorded service. A request is "unanswered" if the recording has no
complete reply to it. It is asked too, because it may have changed the plant.

Exit status: 0 all replies are the same, 1 there is nothing to compare, 2 wrong usage or an invalid file, 4 replies differ.

Examples:
  kvosim compare fault.rec
  kvosim compare fault.rec --plant plant.toml --differences 20
  kvosim compare fault.rec --json | jq .total.percent
)";

Plant plantOf(const Recording &recording, const std::string &path)
{
    if (recording.plant().empty()) {
        throw tools::Refused(
            path + " contains no plant to start from; record with \"kvoctl record --capture\", or give the plant file of " +
            "that time with --plant");
    }
    return parsePlant(recording.plant(), path + " (plant)");
}

}  // namespace

CompareCommand::CompareCommand(CLI::App &app)
    : command_(app.add_subcommand("compare", "Compare the replies in a recording with those of the simulator"))
{
    tools::completions::completeFiles(
        command_->add_option("FILE", recording_, "Recording, kvo-recording(5)")->type_name("")->required());
    tools::completions::completeFiles(
        command_
            ->add_option(
                "--plant", plant_,
                "Plant file, kvo-plant(5), with the plant when the recording began (default: the one in the recording)")
            ->type_name("FILE"));
    command_->add_option("--differences", differences_, "Number of differences to show for each command (default: 3)")
        ->check(CLI::Range(0U, 1'000'000U));
    command_->add_flag("--json", json_, "Print one line of JSON, with whole replies");
    command_->footer(kExamples);
}

int CompareCommand::carryOut() const
{
    const Recording recording = loadRecording(recording_);
    const Plant plant = plant_.empty() ? plantOf(recording, recording_) : loadPlant(plant_);
    Comparison comparison;
    {
        tools::command_line::ProgressLine line(STDERR_FILENO);
        const auto progress = [&line](std::size_t done, std::size_t all) {
            if (line.isDue()) {
                line.write("kvosim: comparing: " + std::to_string(done) + " of " + std::to_string(all) + " requests");
            }
        };
        comparison = compare(recording, plant, {.mostDifferences = differences_, .progress = progress});
    }
    if (comparison.total.compared() == 0) {
        throw std::runtime_error(recording_ + " has no request with a reply, so there is nothing to compare");
    }
    if (json_) {
        // Replies are any bytes; one that is not UTF-8 must not prevent the output of the others.
        std::cout << jsonOf(comparison).dump(-1, ' ', false, tools::Json::error_handler_t::replace) << '\n';
    } else {
        std::cout << textOf(comparison);
    }
    std::cout.flush();
    if (!std::cout) {
        throw std::runtime_error("cannot write to standard output");
    }
    return comparison.total.different == 0 ? 0 : kExitDifferent;
}

}  // namespace kvosim
