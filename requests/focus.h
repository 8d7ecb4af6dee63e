// A variant of one request in focus.cpp for the library's own use.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvo_hws {

/// As KVO_HWS_getKVOT2M2N, but the text is cut to @p size including the terminator.
int32_t getT2M2N(uint32_t station, char *text, std::size_t size) noexcept;

}  // namespace kvo_hws
