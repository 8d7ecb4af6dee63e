// What "kvoctl doctor" found out: one sentence, and what to do where something is wrong.
#pragma once

#include "kvoctl/output/result.h"

#include <string>

namespace kvoctl {

struct Finding {
    std::string check;  ///< what was looked at
    std::string words;
    std::string advice{};    ///< what to do; empty where there is nothing to do
    Exit exit = Exit::done;  ///< tells the kind of a fault
    [[nodiscard]] bool isFault() const noexcept { return exit != Exit::done; }
    /// Something to know that is no fault.
    [[nodiscard]] bool isNote() const noexcept { return !isFault() && !advice.empty(); }
};

}  // namespace kvoctl
