// Messages for the debug message channel and for the system log.
#pragma once

namespace kvo_hws {

/// Sends "<label> - <reason><detail>", the form that every request uses.
void debugMessage(const char *label, const char *reason, const char *detail = "") noexcept;

/// Writes to the system log at every debug level.
void logAlways(int priority, const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));

/// Sends a message that contains values, cut at 255 characters.
void debugValues(const char *format, ...) noexcept __attribute__((format(printf, 1, 2)));

}  // namespace kvo_hws
