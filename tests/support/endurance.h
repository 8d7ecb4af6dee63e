// What runs for long, and is to leave nothing behind.
#pragma once

#include "support/holdings.h"

#include <cstdio>
#include <gtest/gtest.h>

namespace support {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kWatched = true;
inline constexpr const char *kWhyFewer = " (a sanitizer's build is slow, and watches each allocation itself)";
#else
inline constexpr bool kWatched = false;
inline constexpr const char *kWhyFewer = "";
#endif

/// Tells what is held before and after so many requests or events, and fails where it is more afterwards.
/// @param spare  bytes that the heap may have more
inline void expectNothingLeftBehind(int count, const char *what, const char *whyFewer, const Holdings &before,
                                    const Holdings &after, std::size_t spare)
{
    std::printf("%d %s%s: descriptors %zu -> %zu, threads %zu -> %zu, heap %zu -> %zu bytes\n", count, what, whyFewer,
                before.descriptors, after.descriptors, before.threads, after.threads, before.heapBytes, after.heapBytes);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_LE(after.threads, before.threads);  // one of before may just have been ending
    EXPECT_LT(after.heapBytes, before.heapBytes + spare);
}

}  // namespace support
