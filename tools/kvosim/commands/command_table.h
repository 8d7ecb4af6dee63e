// The rows of the command table, and handlers that many rows share. Each family of commands has its own source file.
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

/// The keyword includes the character that ends it ('=' or a space), as on the wire. The handler gets the text after it.
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

/// A request for one station: the station, and the values that come before it in the request.
struct StationCall {
    ServiceContext &context;
    Station station;
    std::string_view values;

    [[nodiscard]] Panel &panel() const { return station.panel; }
};

using StationHandler = std::function<std::string(const StationCall &call)>;

/// The station for a number that a client sent; nothing if no such station exists or it is rebooting. The number is the address
/// with its bytes in either order (docs/command-protocol.md). If both orders match a station, the unswapped number counts.
std::optional<Station> findReachable(Plant &plant, uint32_t number);

/// A command for one station. The station comes last; if values precede it, a space separates them.
Handler onStation(StationHandler handle);
/// The same, for a command without values.
Handler onStationWithoutValues(StationHandler handle);

enum class Quotes { without, around };

/// Sets a key of a station to the value that comes before the station.
Handler setsKey(std::string_view key, Quotes quotes = Quotes::without);

enum class Form { decimal, hexadecimal };

/// Returns @p prefix and the value of a station's key. If the plant gives no value, the whole reply is "none".
Handler returnsKey(std::string_view prefix, std::string_view key, Form form = Form::decimal);

}  // namespace kvosim
