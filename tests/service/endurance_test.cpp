// A million requests leave nothing behind: no descriptor, no thread, no memory.
#include <kvo_hws/kvo_hws.h>

#include "support/holdings.h"
#include "support/scripted_service.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRequests = 20'000;
constexpr const char *kReason = " (a sanitizer's build is slow, and watches each allocation itself)";
#else
constexpr int kRequests = 1'000'000;
constexpr const char *kReason = "";
#endif

using support::Holdings;
using support::holdings;

TEST(Endurance, a_million_requests_leave_nothing_behind)
{
    support::QuickService service("DEBUG_LEVEL_I");
    // Replies of every outcome: taken, refused, unknown.
    const auto requestOnce = [](int round) {
        char version[64];
        unsigned size = sizeof version;
        KvoDescriptionEx record;
        switch (round % 4) {
        case 0: return KVO_HWS_getDebugLevel();
        case 1: return KVO_HWS_isInitComplete();
        case 2: return KVO_HWS_getKVOHWSVersion(version, &size);
        default: return KVO_HWS_getDescriptionEx(1, nullptr, &record);
        }
    };
    for (int round = 0; round < 1000; ++round) {
        requestOnce(round);
    }
    const Holdings before = holdings();
    int answered = 0;
    for (int round = 0; round < kRequests; ++round) {
        answered += requestOnce(round) == 1 ? 1 : 0;
    }
    const Holdings after = holdings();
    std::printf("%d requests%s: descriptors %zu -> %zu, threads %zu -> %zu, heap %zu -> %zu bytes\n", kRequests, kReason,
                before.descriptors, after.descriptors, before.threads, after.threads, before.heapBytes, after.heapBytes);
    EXPECT_EQ(answered, kRequests / 2) << "getDebugLevel and getVersion";
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_LE(after.threads, before.threads);  // one of before may just have been ending
    EXPECT_LT(after.heapBytes, before.heapBytes + 4096);
}

}  // namespace
