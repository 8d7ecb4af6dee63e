// Which words are near enough to be meant.
#include "common/command_line/suggestion.h"

#include <gmock/gmock.h>

namespace {

using command_line::didYouMean;
using command_line::nearest;
using testing::ElementsAre;
using testing::IsEmpty;

using Words = std::vector<std::string>;

struct Row {
    std::string name;
    std::string typed;
    Words known;
    Words meant;
};

class Nearest : public testing::TestWithParam<Row> {};

TEST_P(Nearest, is_found) { EXPECT_EQ(nearest(GetParam().typed, GetParam().known), GetParam().meant); }

INSTANTIATE_TEST_SUITE_P(
    Rows, Nearest,
    testing::Values(
        Row{"missing_character", "statons", {"station", "stations", "usb"}, {"stations"}},
        Row{"character_too_many", "doctorr", {"doctor"}, {"doctor"}}, Row{"wrong_character", "vuewer", {"viewer"}, {"viewer"}},
        Row{"swapped_characters", "usbl okc", {"usbl lock", "usbl oxx", "usbl ock"}, {"usbl ock"}},
        Row{"swap_in_a_short_word", "ubs", {"usb"}, {"usb"}}, Row{"case", "PORTAL MILL", {"Portal mill"}, {"Portal mill"}},
        Row{"beginning", "port", {"Lathe", "Portal mill"}, {"Portal mill"}},
        Row{"beginning_that_is_too_short", "po", {"Portal mill"}, {}}, Row{"one_character", "x", {"y"}, {}},
        Row{"umlaut_is_one_character", "Frase", {"Fräse"}, {"Fräse"}},
        Row{"the_nearest_alone", "lathe 1", {"Lathe 2", "Lathe 1"}, {"Lathe 1"}},
        Row{"three_at_most", "Lathe 9", {"Lathe 1", "Lathe 2", "Lathe 3", "Lathe 4"}, {"Lathe 1", "Lathe 2", "Lathe 3"}},
        Row{"each_once", "Lathe 9", {"Lathe 1", "Lathe 1"}, {"Lathe 1"}}, Row{"too_far", "reboot", {"stations", "ready"}, {}},
        Row{"two_of_six_are_near", "abcdef", {"abxxef"}, {"abxxef"}}, Row{"two_of_five_are_not", "abcde", {"abxxe"}, {}},
        Row{"nothing_typed", "", {"a", ""}, {}}, Row{"broken_utf8", "\xE3\x83", {"\xFF", "ab"}, {}}),
    [](const auto &row) { return row.param.name; });

TEST(Nearest, of_a_hundred_thousand_long_names_takes_no_time)
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
