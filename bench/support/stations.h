// Test data for the codecs: stations as the daemon stores them, as its text, and as JSON.
#pragma once

#include <kvo_hws/codecs.h>

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// Returns the same stations in every run. Names have 4 to 24 characters, so the processor cannot predict their lengths.
std::vector<ConnectionEntry> makeStations(uint32_t count);

/// The description text, written with printf.
std::string textOf(const std::vector<ConnectionEntry> &stations, bool extended);

/// The same members as a JSON array of objects.
std::string jsonOf(const std::vector<ConnectionEntry> &stations, bool extended);

}  // namespace bench
