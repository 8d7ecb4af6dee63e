// Answers the request lines of the service, and applies the datagrams of the USB lock.
#pragma once

#include "kvosim/commands/service_context.h"

#include <string>
#include <string_view>
#include <vector>

namespace kvosim {

/// Returns the reply to one request. Neither line includes its line end.
std::string answer(ServiceContext &context, std::string_view request);

/// What the service does with a request.
struct Outcome {
    std::string reply;             ///< without its line end
    const Fault *fault = nullptr;  ///< the fault that strikes the request. Only FaultKind::failed has changed the reply
};

/// Counts a request and answers it, or not if a fault says so. Logs a request that cannot be carried out.
Outcome carryOut(ServiceContext &context, std::string_view request);

/// The keyword of a request, without the "=" or space that ends it.
std::string_view keywordOf(std::string_view request);

/// Creates a fault for one command of the table, or for all. Throws FaultError.
Fault makeFault(const FaultText &text);

/// The keywords of all commands in alphabetical order, without the "=" or space that ends them.
std::vector<std::string_view> commandKeywords();

/// Applies a datagram of the USB lock. Returns false and changes nothing if it is malformed or its station is unknown.
bool applyUsbLock(Plant &plant, std::string_view datagram);

}  // namespace kvosim
