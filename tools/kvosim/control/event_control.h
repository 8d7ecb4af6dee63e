// The request of the control socket that publishes events of embedded stations.
#pragma once

#include "common/control_protocol.h"
#include "kvosim/events/embedded_events.h"
#include "kvosim/net/line_server.h"

#include <optional>
#include <string_view>

namespace kvosim {

inline constexpr std::size_t kLongestEvent = 4096;  ///< bytes, without the line end

/// Describes what is wrong with the text of an event, and the correct form. Empty if receivers accept the text.
std::string eventMistake(std::string_view text);

/// Carries out the request "event". Returns nothing for any other request. Throws if "event" cannot be carried out.
std::optional<Reply> answerEventControl(EmbeddedEvents &events, const tools::Json &request);

}  // namespace kvosim
