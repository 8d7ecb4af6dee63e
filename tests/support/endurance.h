// Long runs, after which a process must use no more resources than before.
#pragma once

#include "support/resource_usage.h"

#include <cstdio>
#include <gtest/gtest.h>

namespace support {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
inline constexpr const char *kWhyFewerRuns = " (a sanitizer's build is slow, and checks each allocation itself)";
#else
inline constexpr bool kSanitized = false;
inline constexpr const char *kWhyFewerRuns = "";
#endif

/// Prints the resource usage before and after @p count requests or events, and fails if it has grown.
/// @param spare  bytes by which the heap may have grown
inline void expectSameUsage(int count, const char *what, const char *whyFewer, const ResourceUsage &before,
                            const ResourceUsage &after, std::size_t spare)
{
    std::printf("%d %s%s: descriptors %zu -> %zu, threads %zu -> %zu, heap %zu -> %zu bytes\n", count, what, whyFewer,
                before.descriptors, after.descriptors, before.threads, after.threads, before.heapBytes, after.heapBytes);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_LE(after.threads, before.threads);  // a thread counted before may just have been ending
    EXPECT_LT(after.heapBytes, before.heapBytes + spare);
}

}  // namespace support
