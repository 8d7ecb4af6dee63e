// What faults come to, as tables of docs/reliability.md: a part for each journey, between two markers.
#pragma once

#include "reliability/scenarios.h"

#include <string>
#include <vector>

namespace reliability {

/// What one fault has come to.
struct Record {
    Fault fault;
    std::string result;    ///< the steps that went otherwise than without it; empty where none did
    std::string messages;  ///< those that are not logged without it
};

/// The part of the page about a journey, without its markers.
std::string tableOf(const JourneyKind &journey, const Outcome &usual, const std::vector<Record> &records);

/// The part about which call fails in which ways.
std::string tableOfErrors();

/// A part of the page as it stands.
std::string partOfPage(const std::string &name);

/// A part as it is where no allocation can be made to fail.
std::string withoutMemory(const std::string &part);

/// Writes a part anew.
void writePartOfPage(const std::string &name, const std::string &part);

}  // namespace reliability
