// What the service says to the two commands of USB events.
#pragma once

namespace kvo_hws {

enum class ServiceAnswer { ok, other, none };

/// One exchange with the service, of which no more than this is of interest.
ServiceAnswer askService(const char *command) noexcept;

}  // namespace kvo_hws
