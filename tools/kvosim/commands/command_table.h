// The command table's rows, and the forms that many of them share. Each family of commands has a source of its own.
#pragma once

#include "kvosim/base/arguments.h"
#include "kvosim/commands/service_context.h"
#include "kvosim/plant/station_keys.h"

#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace kvosim {

inline constexpr const char *kOk = "ok";
inline constexpr const char *kNotFound = "not found";
inline constexpr const char *kBusy = "busy";
inline constexpr const char *kBadRequest = "bad request";

using Handler = std::function<std::string(ServiceContext &context, std::string_view arguments)>;

/// A keyword stands with the character that ends it, so that it reads as it goes over the wire; what follows it is the
/// handler's.
struct Command {
    std::string_view keyword;
    Handler handle;
};

std::span<const Command> serviceCommands();
std::span<const Command> listCommands();
std::span<const Command> viewerCommands();
std::span<const Command> panelCommands();
std::span<const Command> addressCommands();
std::span<const Command> focusCommands();
std::span<const Command> inputCommands();
std::span<const Command> usbCommands();
std::span<const Command> metricCommands();

/// A request about one station: the station, and the values that stand before it.
struct StationCall {
    ServiceContext &context;
    Station station;
    std::string_view values;

    [[nodiscard]] Panel &panel() const { return station.panel; }
};

using StationHandler = std::function<std::string(const StationCall &call)>;

/// The station that a client's number stands for; nothing when there is none, or it is rebooting. The number is the address
/// with its bytes in either order (docs/command-protocol.md); where both readings find a station, the plain one counts.
std::optional<Station> reachable(Plant &plant, uint32_t number);

/// A command about one station, which stands at the end, behind a space where values stand before it.
Handler onStation(StationHandler handle);
/// The same without values.
Handler onStationAlone(StationHandler handle);

enum class Quotes { without, around };

/// Sets a key of a station to the value that stands before it.
Handler sets(std::string_view key, Quotes quotes = Quotes::without);

enum class Form { decimal, hexadecimal };

/// Tells a key of a station behind @p prefix; the whole reply is "none" where the plant does not tell it.
Handler tells(std::string_view prefix, std::string_view key, Form form = Form::decimal);

}  // namespace kvosim
