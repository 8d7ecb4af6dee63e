// IPv4 addresses as numbers (0x0A000005) and as people write them ("10.0.0.5").
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tools {

std::string dotted(uint32_t address);

/// Parses four decimal numbers from 0 to 255 without leading zeros. Returns nothing for any other text.
std::optional<uint32_t> parseDotted(const std::string &text);

}  // namespace tools
