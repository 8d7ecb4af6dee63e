// The speed of a replay.
#include "kvosim/replay/speed.h"
#include "tools/kvosim/support/named_row.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim::Speed;

struct SpeedRow : kvosim_test::NamedRow {
    std::string text;
    std::optional<kvosim::Microseconds> second;  ///< a recorded second in the replay
};

class ReplaySpeed : public testing::TestWithParam<SpeedRow> {};

TEST_P(ReplaySpeed, divides_recorded_times)
{
    const std::optional<Speed> speed = Speed::parse(GetParam().text);
    EXPECT_EQ(speed ? std::optional(speed->scaled(1s)) : std::nullopt, GetParam().second);
}

const std::vector<SpeedRow> kSpeeds = {
    {"one", "1", 1s},
    {"ten", "10", 100ms},
    {"half", "0.5", 2s},
    {"slowest", "0.001", 1000s},
    {"fastest", "1000000", 1us},
    {"max", "max", 0s},
    {"zero", "0", {}},
    {"negative", "-1", {}},
    {"too_slow", "0.0001", {}},
    {"too_fast", "1000001", {}},
    {"text", "fast", {}},
    {"empty", "", {}},
    {"not_a_number", "nan", {}},
    {"infinite", "inf", {}},
    {"more_text", "2x", {}},
    {"exponent", "1e3", {}},
    {"blank", " 1", {}},
    {"upper_case", "MAX", {}},
};

INSTANTIATE_TEST_SUITE_P(Table, ReplaySpeed, testing::ValuesIn(kSpeeds), kvosim_test::kNameOfRow);

TEST(ReplaySpeed, is_that_of_the_recording_without_a_factor) { EXPECT_EQ(Speed().scaled(123us), 123us); }

}  // namespace
