// The stations that the codecs are measured with: as the daemon keeps them, as its text, and as JSON.
#pragma once

#include <kvo_hws/codecs.h>

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// The same stations in every run; their names are 4 to 24 characters long, so that no length can be foreseen.
std::vector<ConnectionEntry> makeStations(uint32_t count);

/// The description text, written with printf.
std::string textOf(const std::vector<ConnectionEntry> &stations, bool extended);

/// The same members as a JSON array of objects.
std::string jsonOf(const std::vector<ConnectionEntry> &stations, bool extended);

}  // namespace bench
