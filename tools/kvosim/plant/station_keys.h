// The keys of a station, as plant files, the control socket and the command line spell them: names, ranges, values.
#pragma once

#include "kvosim/base/arguments.h"
#include "kvosim/plant/plant.h"

#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace kvosim {

/// What is written where the plant does not tell a number.
inline constexpr std::string_view kNoValue = "none";

struct NumberKey {
    std::variant<int64_t Panel::*, OptionalNumber Panel::*, uint32_t ConnectionEntry::*> member;
    int64_t lowest;
    int64_t highest;
    int64_t step = 1;
};

struct TextKey {
    std::string Panel::*member;
    bool (*valid)(std::string_view text);
    std::string_view form;  ///< what is valid, in words
};

struct StationKey {
    std::string_view name;
    std::variant<NumberKey, TextKey> kind;
};

std::span<const StationKey> stationKeys();
/// Null when there is no such key.
const StationKey *findStationKey(std::string_view name);
/// Throws std::invalid_argument when there is no such key.
const StationKey &stationKey(std::string_view name);

Value read(const StationKey &key, const Station &station);
/// Empty when the value was stored; else what is wrong with it, and what would be right.
[[nodiscard]] std::string assign(const StationKey &key, const Station &station, const Value &value);
/// A value as it is typed on a command line: a key of numbers takes decimal and 0x1F.
Value parseTyped(const StationKey &key, const std::string &text);

/// "1:2": two numbers of 32 bits.
bool isPair(std::string_view text);

}  // namespace kvosim
