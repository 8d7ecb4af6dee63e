// The requests that read a station, and what their replies mean for the keys of a plant file.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kvoctl {

/// The reply to a request, without its line end.
struct Answer {
    std::optional<std::string> reply{};
    std::string reason{};  ///< why no reply came
};

/// A key of a plant file.
struct Setting {
    std::string_view key;
    std::string value{};      ///< in TOML
    std::string reason{};     ///< why it has no value; empty if it has one
    bool isProperty = false;  ///< the reason describes the station: nothing has failed
};

struct NumberRange {
    int64_t lowest;
    int64_t highest;
    int64_t step = 1;
    bool mayBeNone = false;
};

/// One request, or several whose replies are understood together.
struct StationRequest {
    std::vector<std::string> commands;  ///< without the station, which follows as eight hexadecimal digits
    /// Returns the settings in the order of the file, one for each key.
    std::function<std::vector<Setting>(std::span<const Answer> answers)> read;
};

/// In the order of the file.
std::span<const StationRequest> stationRequests();

/// The ranges of all numbers that are read from stations.
std::span<const std::pair<std::string_view, NumberRange>> stationNumbers();

// ---- Values of a plant file ----

/// A text with @p isValid, or the reason why a plant file cannot contain it.
Setting textSetting(std::string_view key, std::string_view text, bool (*isValid)(std::string_view text));
/// Why the key has no value: no reply came, or the reply has no value.
Setting notRead(std::string_view key, const Answer &answer);
/// The bytes in double quotes on one line, cut if they are long.
std::string shown(std::string_view bytes);

}  // namespace kvoctl
