// Suggestions: which known words are near enough to an unknown one.
#include "common/command_line/suggestion.h"

#include <gmock/gmock.h>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tools::command_line::didYouMean;
using tools::command_line::nearest;

using Words = std::vector<std::string>;

struct Row {
    std::string name;
    std::string typed;
    Words known;
    Words meant;
};

class Nearest : public testing::TestWithParam<Row> {};

TEST_P(Nearest, suggests_the_expected_words) { EXPECT_EQ(nearest(GetParam().typed, GetParam().known), GetParam().meant); }

const std::vector<Row> kSuggestions = {
    {"missing_character", "statons", {"station", "stations", "usb"}, {"stations"}},
    {"extra_character", "doctorr", {"doctor"}, {"doctor"}},
    {"wrong_character", "vuewer", {"viewer"}, {"viewer"}},
    {"swapped_characters", "usbl okc", {"usbl lock", "usbl oxx", "usbl ock"}, {"usbl ock"}},
    {"swap_in_a_short_word", "ubs", {"usb"}, {"usb"}},
    {"other_case", "PORTAL MILL", {"Portal mill"}, {"Portal mill"}},
    {"beginning", "port", {"Lathe", "Portal mill"}, {"Portal mill"}},
    {"beginning_that_is_too_short", "po", {"Portal mill"}, {}},
    {"one_wrong_character_alone", "x", {"y"}, {}},
    {"umlaut_is_one_character", "Frase", {"Fräse"}, {"Fräse"}},
    {"only_the_nearest", "lathe 1", {"Lathe 2", "Lathe 1"}, {"Lathe 1"}},
    {"at_most_three", "Lathe 9", {"Lathe 1", "Lathe 2", "Lathe 3", "Lathe 4"}, {"Lathe 1", "Lathe 2", "Lathe 3"}},
    {"no_duplicates", "Lathe 9", {"Lathe 1", "Lathe 1"}, {"Lathe 1"}},
    {"nothing_similar", "reboot", {"stations", "ready"}, {}},
    {"two_wrong_of_six_characters", "abcdef", {"abxxef"}, {"abxxef"}},
    {"two_wrong_of_five_characters", "abcde", {"abxxe"}, {}},
    {"nothing_typed", "", {"a", ""}, {}},
    {"broken_utf8", "\xE3\x83", {"\xFF", "ab"}, {}}};

INSTANTIATE_TEST_SUITE_P(Rows, Nearest, testing::ValuesIn(kSuggestions), [](const auto &row) { return row.param.name; });

TEST(Nearest, is_fast_for_a_hundred_thousand_long_names)
{
    const Words names(100'000, std::string(259, 'n'));
    EXPECT_THAT(nearest(std::string(130, 'n'), names), ElementsAre(names.front())) << "its beginning";
    EXPECT_THAT(nearest("Portal mil", names), IsEmpty());
}

TEST(DidYouMean, lists_words)
{
    EXPECT_EQ(didYouMean({}), "");
    EXPECT_EQ(didYouMean({"a"}), "; did you mean \"a\"?");
    EXPECT_EQ(didYouMean({"a", "b"}), "; did you mean \"a\" or \"b\"?");
    EXPECT_EQ(didYouMean({"a", "b", "c"}), "; did you mean \"a\", \"b\" or \"c\"?");
}

}  // namespace
