// One run of a scenario: its steps, their results, and the log messages of the library.
#pragma once

#include "reliability/faults.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace reliability {

struct Outcome {
    std::vector<std::pair<std::string, std::string>> steps;  ///< names and results in order
    std::vector<std::string> messages;  ///< without details that differ between runs; sorted, without duplicates
};

class Run {
public:
    /// Calls the library, and checks that the result is one that its header documents.
    int step(const char *name, std::initializer_list<int> documented, const std::function<int()> &call)
    {
        const int result = faults::withMemory(name, call);
        const bool isDocumented = std::ranges::find(documented, result) != documented.end();
        EXPECT_TRUE(isDocumented) << name << " returned " << result;
        note(name, std::to_string(result));
        return result;
    }

    void note(const char *name, std::string result) { outcome_.steps.emplace_back(name, std::move(result)); }

    [[nodiscard]] Outcome &outcome() { return outcome_; }

private:
    Outcome outcome_;
};

}  // namespace reliability
