// What the service answers to each request line, and what it makes of the datagrams of the USB lock.
#pragma once

#include "kvosim/commands/service_context.h"

#include <string>
#include <string_view>
#include <vector>

namespace kvosim {

/// Answers one request; both lines without their line end.
std::string answer(ServiceContext &context, std::string_view request);

/// The keyword of a request, without the "=" or space that ends it.
std::string_view keywordOf(std::string_view request);

/// A fault for a command of the table, or for all. Throws FaultError.
Fault makeFault(const FaultText &text);

/// The keywords of all commands, without what ends them, in alphabetical order.
std::vector<std::string_view> commandKeywords();

/// Carries out a datagram of the USB lock; false, with nothing changed, when it is none or names no station.
bool takeUsbLock(Plant &plant, std::string_view datagram);

}  // namespace kvosim
