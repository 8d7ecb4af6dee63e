// Variables that threads share. They are exported, so programs that link them must see normal integers.
#pragma once

#include <atomic>

namespace kvo_hws {

/// Atomic access to a word.
template <class Word>
std::atomic_ref<Word> shared(Word &word) noexcept
{
    return std::atomic_ref<Word>(word);
}

}  // namespace kvo_hws
