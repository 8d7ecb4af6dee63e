// Selects the exchanges that a trace shows.
#pragma once

#include "kvoctl/trace/entry.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kvoctl {

/// A station as a request names it.
struct TracedStation {
    uint32_t address = 0;
    std::string name{};  ///< empty if the user gave the address
};

/// Of each list that is not empty, one value must match.
struct Filter {
    std::vector<std::string> programs{};  ///< names or process ids
    std::vector<std::string> commands{};
    std::vector<TracedStation> stations{};
    bool failures = false;

    [[nodiscard]] bool isEmpty() const noexcept
    {
        return programs.empty() && commands.empty() && stations.empty() && !failures;
    }
    [[nodiscard]] bool matches(const Entry &entry) const;
};

}  // namespace kvoctl
