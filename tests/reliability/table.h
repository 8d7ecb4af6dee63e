// The effects of faults as tables in docs/reliability.md: one section for each scenario, between two markers.
#pragma once

#include "reliability/scenarios.h"

#include <string>
#include <vector>

namespace reliability {

/// The effect of one fault.
struct Record {
    Fault fault;
    std::string result;    ///< the steps whose results differ from those without the fault; empty if none do
    std::string messages;  ///< the messages that are not logged without the fault
};

/// The section of a scenario, without its markers.
std::string tableOf(const ScenarioKind &scenario, const Outcome &usual, const std::vector<Record> &records);

/// The section with the errors of each call.
std::string tableOfErrors();

/// Reads a section from the page.
std::string readSection(const std::string &name);

/// Removes the rows about memory from a section, for builds in which allocations cannot be made to fail.
std::string withoutMemory(const std::string &part);

/// Replaces a section of the page.
void writeSection(const std::string &name, const std::string &part);

}  // namespace reliability
