// Words that threads share and that stay plain words for the programs that link them.
#pragma once

#include <atomic>

namespace kvo_hws {

/// The word, read and written atomically.
template <class Word>
std::atomic_ref<Word> shared(Word &word) noexcept
{
    return std::atomic_ref<Word>(word);
}

}  // namespace kvo_hws
