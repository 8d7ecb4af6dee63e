// Requests of this family in a form that the library itself can use.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvo_hws {

/// As KVO_HWS_getKVOT2M2N, cut to @p size with its terminator.
int32_t getT2M2N(uint32_t station, char *text, std::size_t size) noexcept;

}  // namespace kvo_hws
