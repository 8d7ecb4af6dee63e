// Times of the monotonic clock in two 32-bit words, and their difference in milliseconds.
#include <kvo_hws/runtime.h>

#include "runtime/shared_word.h"

#include <ctime>

KvoTimeval __timeval_now = {};

namespace {

/// The current time, for an omitted argument. Other threads may call this at the same time.
KvoTimeval refreshedNow() noexcept
{
    KvoTimeval now;
    timeval_get(&now);
    kvo_hws::shared(__timeval_now.tv_sec).store(now.tv_sec);
    kvo_hws::shared(__timeval_now.tv_usec).store(now.tv_usec);
    return now;
}

}  // namespace

void timeval_get(KvoTimeval *now) noexcept
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    *now = {.tv_sec = static_cast<int32_t>(time.tv_sec), .tv_usec = static_cast<int32_t>(time.tv_nsec / 1000)};
}

int32_t timeval_diff(const KvoTimeval *a, const KvoTimeval *b) noexcept
{
    const KvoTimeval now = a == nullptr || b == nullptr ? refreshedNow() : KvoTimeval{};
    const KvoTimeval &later = a == nullptr ? now : *a;
    const KvoTimeval &earlier = b == nullptr ? now : *b;
    const int64_t seconds = int64_t{later.tv_sec} - earlier.tv_sec;
    const int64_t microseconds = int64_t{later.tv_usec} - earlier.tv_usec;
    // The division truncates toward zero even if the sum is negative: new timings are compared with recorded ones.
    return static_cast<int32_t>(seconds * 1000 + (microseconds + 500) / 1000);
}
