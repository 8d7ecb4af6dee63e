// Messages of the form that every request uses: the operation's label, " - " and a reason.
#pragma once

namespace kvo_hws {

/// Sends "<label> - <reason><detail>" to the debug message channel.
void debugMessage(const char *label, const char *reason, const char *detail = "") noexcept;

}  // namespace kvo_hws
