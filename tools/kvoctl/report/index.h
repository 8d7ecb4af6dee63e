// The readable index of a report.
#pragma once

#include "kvoctl/report/gathering.h"

#include <optional>
#include <string>
#include <vector>

namespace kvoctl::reporting {

struct MadePart {
    Part part;
    Gathered gathered;

    [[nodiscard]] bool isMissing() const noexcept { return !gathered.failure.empty(); }
    [[nodiscard]] bool isIncomplete() const noexcept { return !isMissing() && !gathered.content.notes.empty(); }
};

struct Replaced {
    std::size_t addresses;
    std::size_t texts;
};

struct Overview {
    tools::recording::StartTime began{};
    std::chrono::microseconds time{};
    std::string doctor{};  ///< the first fault that it has found, or that there is none
    std::optional<Replaced> replaced{};
    bool isEndedEarly = false;
};

/// The names of the parts that are missing or incomplete, with the reasons, as paragraphs of 80 columns.
std::string problemsText(const std::vector<MadePart> &parts);

std::string indexText(const Overview &overview, const std::vector<MadePart> &parts);

}  // namespace kvoctl::reporting
