// What the requests of the control socket have in common.
#pragma once

#include "common/control_protocol.h"
#include "common/refused.h"
#include "kvosim/plant/plant.h"
#include "kvosim/plant/station_keys.h"

#include <string>

namespace kvosim {

/// A reply as it goes over the socket.
std::string lineOf(const tools::Json &reply);

/// A number or a text; anything else is the value that is neither.
Value fromJson(const tools::Json &json);
tools::Json toJson(const Value &value);

/// By its address or its name. Throws Refused where there is none.
Station findStation(Plant &plant, const std::string &wanted);

/// A number of 32 bits, 0 where the key is absent. Throws Refused where it is none.
uint32_t countOf(const tools::Json &request, const char *key);

}  // namespace kvosim
