// Helpers for the requests of the control socket.
#pragma once

#include "common/control_protocol.h"
#include "common/refused.h"
#include "kvosim/plant/plant.h"
#include "kvosim/plant/station_keys.h"

#include <string>

namespace kvosim {

/// The reply as one line for the socket.
std::string lineOf(const tools::Json &reply);

/// Converts a number or a text. Anything else becomes std::monostate.
Value fromJson(const tools::Json &json);
tools::Json toJson(const Value &value);

/// Finds a station by its address or its name. Throws Refused if none matches.
Station findStation(Plant &plant, const std::string &wanted);

/// The 32-bit number of @p key, or 0 if the key is absent. Throws Refused if the value is anything else.
uint32_t countOf(const tools::Json &request, const char *key);

}  // namespace kvosim
