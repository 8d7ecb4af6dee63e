// The time record and its difference in milliseconds.
#include <kvo_hws/runtime.h>

#include <climits>
#include <ctime>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Difference {
    const char *name;
    KvoTimeval a;
    KvoTimeval b;
    int32_t milliseconds;
};

std::ostream &operator<<(std::ostream &out, const Difference &row) { return out << row.name; }

class TimevalDiff : public testing::TestWithParam<Difference> {};

TEST_P(TimevalDiff, is_rounded_as_expected)
{
    const Difference &row = GetParam();
    EXPECT_EQ(timeval_diff(&row.a, &row.b), row.milliseconds);
}

const std::vector<Difference> kDifferences = {{"equal_times", {5, 7}, {5, 7}, 0},  //
                                              {"rounds_down", {5, 400}, {5, 0}, 0},
                                              {"rounds_half_up", {5, 500}, {5, 0}, 1},
                                              {"rounds_up", {5, 600}, {5, 0}, 1},
                                              {"whole_milliseconds", {7, 250'000}, {5, 0}, 2250},
                                              {"minus_700_us_rounds_to_0", {5, 0}, {5, 700}, 0},
                                              {"minus_1600_us_rounds_to_minus_1", {5, 0}, {5, 1600}, -1},
                                              {"second_boundary_0_4_ms", {5, 0}, {4, 999'600}, 1},
                                              {"second_boundary_0_6_ms", {5, 0}, {4, 999'400}, 2},
                                              {"backwards", {4, 0}, {6, 0}, -2000},
                                              {"wraps_around", {INT_MAX, 0}, {0, 0}, -1000},
                                              {"largest_difference", {INT_MAX, 0}, {INT_MIN, 0}, -1000}};

INSTANTIATE_TEST_SUITE_P(Of, TimevalDiff, testing::ValuesIn(kDifferences),
                         [](const auto &row) { return std::string(row.param.name); });

KvoTimeval secondsFromNow(int32_t seconds)
{
    KvoTimeval time{};
    timeval_get(&time);
    time.tv_sec += seconds;
    return time;
}

TEST(TimevalDiffToNow, uses_the_current_time_for_an_omitted_time)
{
    const KvoTimeval past = secondsFromNow(-100);
    EXPECT_NEAR(timeval_diff(nullptr, &past), 100'000, 5'000);
    EXPECT_NEAR(timeval_diff(&past, nullptr), -100'000, 5'000);
    EXPECT_EQ(timeval_diff(nullptr, nullptr), 0);
}

TEST(TimevalDiffToNow, stores_the_current_time_in_a_public_variable)
{
    __timeval_now = {};
    const KvoTimeval past = secondsFromNow(-1);
    timeval_diff(&past, &past);
    EXPECT_EQ(__timeval_now.tv_sec, 0) << "only if a time is omitted";
    __timeval_now.tv_usec = -1;
    timeval_diff(nullptr, &past);
    EXPECT_GE(__timeval_now.tv_usec, 0);
    KvoTimeval now{};
    timeval_get(&now);
    EXPECT_LT(timeval_diff(&now, &__timeval_now), 5000);
    EXPECT_GT(__timeval_now.tv_sec, past.tv_sec - 1);
}

TEST(TimevalDiffToNow, may_be_called_by_several_threads)
{
    const auto ask = [] {
        const KvoTimeval past = secondsFromNow(-10);
        for (int round = 0; round < 1000; ++round) {
            ASSERT_NEAR(timeval_diff(nullptr, &past), 10'000, 9'000);
        }
    };
    std::thread other(ask);
    ask();
    other.join();
}

TEST(TimevalGet, reads_the_monotonic_clock_in_microseconds)
{
    timespec before{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    KvoTimeval now{};
    timeval_get(&now);
    timespec after{};
    clock_gettime(CLOCK_MONOTONIC, &after);
    const auto microseconds = [](int64_t seconds, int64_t rest) { return seconds * 1'000'000 + rest; };
    EXPECT_GE(microseconds(now.tv_sec, now.tv_usec), microseconds(before.tv_sec, before.tv_nsec / 1000));
    EXPECT_LE(microseconds(now.tv_sec, now.tv_usec), microseconds(after.tv_sec, after.tv_nsec / 1000));
}

}  // namespace
