// Sizes with units on the command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kvoctl {

/// Bytes: a number from 1, and k, M or G for 1024, 1024² or 1024³ of them. Nothing for any other text.
std::optional<uint64_t> parseSize(const std::string &text);

}  // namespace kvoctl
