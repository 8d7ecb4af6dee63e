// The keys of a station as plant files, the control socket and the command line use them: names, ranges and values.
#pragma once

#include "common/plant_values.h"
#include "kvosim/base/arguments.h"
#include "kvosim/plant/plant.h"

#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace kvosim {

using tools::kNoValue;

struct NumberKey {
    std::variant<int64_t Panel::*, OptionalNumber Panel::*, uint32_t ConnectionEntry::*> member;
    int64_t lowest;
    int64_t highest;
    int64_t step = 1;
};

struct TextKey {
    std::string Panel::*member;
    bool (*isValid)(std::string_view text);
    std::string_view form;  ///< the valid form, for messages
};

struct StationKey {
    std::string_view name;
    std::variant<NumberKey, TextKey> kind;
};

std::span<const StationKey> stationKeys();
/// Null if the key does not exist.
const StationKey *findStationKey(std::string_view name);
/// Throws std::invalid_argument if the key does not exist.
const StationKey &stationKey(std::string_view name);

Value read(const StationKey &key, const Station &station);
/// Stores a value. Returns an empty text, or what is wrong with the value and what is valid.
[[nodiscard]] std::string assign(const StationKey &key, const Station &station, const Value &value);
/// A value typed on a command line: numeric keys accept decimal numbers and hexadecimal ones such as 0x1F.
Value parseTyped(const StationKey &key, const std::string &text);

}  // namespace kvosim
