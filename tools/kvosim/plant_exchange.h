// Answers a request from a plant, with the plant's faults.
#pragma once

#include "kvosim/commands/commands.h"
#include "kvosim/net/line_server.h"

#include <functional>
#include <string_view>

namespace kvosim {

/// The reply to @p request. @p report is called with a line for the log. If the request ends the service, context.ending is set.
Reply exchangeWithPlant(ServiceContext &context, std::string_view request,
                        const std::function<void(std::string_view line)> &report);

}  // namespace kvosim
