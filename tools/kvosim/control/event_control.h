// The request of the control socket about events of embedded stations.
#pragma once

#include "common/control_protocol.h"
#include "kvosim/events/embedded_events.h"
#include "kvosim/net/line_server.h"

#include <optional>
#include <string_view>

namespace kvosim {

inline constexpr std::size_t kLongestEvent = 4096;  ///< bytes, without the line end

/// What is wrong with the text of an event, and what would be right; empty where its receivers take it.
std::string eventMistake(std::string_view text);

/// Carries out "event"; nothing where it is something else. What can not be done throws.
std::optional<Reply> answerEventControl(EmbeddedEvents &events, const tools::Json &request);

}  // namespace kvosim
