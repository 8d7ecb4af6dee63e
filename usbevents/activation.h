// Which activation or end of USB events is the last one: an earlier one that is still about must not undo it.
#pragma once

#include <cstdint>

namespace kvo_hws {

/// A new activation, or the end of one, overtakes every earlier one. Returns its number, which is not 0.
uintptr_t overtakeActivations() noexcept;

/// Sets no callback any more, unless @p number was overtaken. Returns whether it was not.
bool takeCallbacksAway(uintptr_t number) noexcept;

}  // namespace kvo_hws
