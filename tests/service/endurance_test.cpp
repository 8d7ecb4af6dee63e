// A million requests cause no leak of descriptors, threads or memory.
#include <kvo_hws/kvo_hws.h>

#include "support/endurance.h"
#include "support/scripted_service.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

constexpr int kRequests = support::kSanitized ? 20'000 : 1'000'000;

using support::ResourceUsage;
using support::resourceUsage;

TEST(Endurance, a_million_requests_leave_no_resources_in_use)
{
    support::QuickService service("DEBUG_LEVEL_I");
    // Replies with every outcome: accepted, refused, unknown.
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
    const ResourceUsage before = resourceUsage();
    int answered = 0;
    for (int round = 0; round < kRequests; ++round) {
        answered += requestOnce(round) == 1 ? 1 : 0;
    }
    const ResourceUsage after = resourceUsage();
    EXPECT_EQ(answered, kRequests / 2) << "getDebugLevel and getVersion";
    support::expectSameUsage(kRequests, "requests", support::kWhyFewerRuns, before, after, 4096);
}

}  // namespace
