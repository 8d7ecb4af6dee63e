// The table and the JSON document of a comparison.
#include "kvosim/compare/comparison_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using namespace std::chrono_literals;
using kvosim::Comparison;
using kvosim::Figures;
using testing::HasSubstr;
using testing::Not;

Comparison comparisonWith(const Figures &figures, std::vector<kvosim::Difference> differences = {})
{
    Comparison comparison;
    comparison.commands["getVersion"] = {figures, std::move(differences)};
    comparison.total = figures;
    return comparison;
}

TEST(ComparisonText, is_a_table_with_the_differences_of_each_command)
{
    Comparison comparison =
        comparisonWith({.same = 2, .different = 1, .unanswered = 1}, {{1500ms, 7, "getVersion", "V1\x1B", "V01.00.00.00"}});
    comparison.commands["getregistrypath"] = {{.same = 10, .different = 0, .unanswered = 0}};
    comparison.total.same += 10;
    comparison.incomplete = 2;
    EXPECT_EQ(textOf(comparison), R"(command          requests  same  different  unanswered  percent
getVersion              4     2          1           1     66.6
getregistrypath        10    10          0           0    100.0
total                  14    12          1           1     92.3

getVersion: 1 reply differs
  line 7, at 1.500000 s: "getVersion"
    recorded   "V1\x1B"
    simulated  "V01.00.00.00"

2 requests are not complete and not compared

of getregistrypath only the form is compared: a path with "/" at its end
)");
}

TEST(ComparisonText, says_100_only_if_all_replies_are_the_same)
{
    EXPECT_THAT(textOf(comparisonWith({.same = 99'999, .different = 1, .unanswered = 0})), HasSubstr(" 99.9\n"));
    EXPECT_THAT(textOf(comparisonWith({.same = 99'999, .different = 0, .unanswered = 1})), HasSubstr(" 100.0\n"));
    EXPECT_THAT(textOf(comparisonWith({.same = 0, .different = 0, .unanswered = 1})), HasSubstr(" -\n"));
}

TEST(ComparisonText, cuts_long_replies_around_the_first_difference)
{
    const std::string same(1000, 's');
    const std::string more(1000, 'm');
    const std::string text = textOf(
        comparisonWith({.same = 0, .different = 1, .unanswered = 0}, {{0s, 1, same, same + "a" + more, same + "b" + more}}));
    const std::string before(30, 's');
    EXPECT_THAT(text, HasSubstr("at 0.000000 s: \"" + std::string(100, 's') + "\"...\n"));
    EXPECT_THAT(text, HasSubstr("recorded   ...\"" + before + "a" + std::string(69, 'm') + "\"...\n"));
    EXPECT_THAT(text, HasSubstr("simulated  ...\"" + before + "b" + std::string(69, 'm') + "\"...\n"));
}

TEST(ComparisonText, shows_a_reply_that_ends_where_the_other_goes_on)
{
    const std::string same(1000, 's');
    const std::string text =
        textOf(comparisonWith({.same = 0, .different = 1, .unanswered = 0}, {{0s, 1, "getVersion", same + "!", same}}));
    EXPECT_THAT(text, HasSubstr("recorded   ...\"" + std::string(30, 's') + "!\"\n"));
    EXPECT_THAT(text, HasSubstr("simulated  ...\"" + std::string(30, 's') + "\"\n"));
}

TEST(ComparisonText, shows_that_the_simulator_does_not_reply)
{
    const auto comparison =
        comparisonWith({.same = 0, .different = 2, .unanswered = 0}, {{0s, 1, "getVersion", "V1", std::nullopt}});
    EXPECT_THAT(textOf(comparison), HasSubstr("getVersion: 2 replies differ\n"));
    EXPECT_THAT(textOf(comparison), HasSubstr("    simulated  no reply\n"));
    EXPECT_THAT(textOf(comparison), Not(HasSubstr("not complete")));
    EXPECT_TRUE(jsonOf(comparison)["commands"]["getVersion"]["differences"][0]["simulated"].is_null());
}

TEST(ComparisonText, json_has_all_figures_and_whole_replies)
{
    const std::string reply(1000, 'r');
    Comparison comparison =
        comparisonWith({.same = 3, .different = 1, .unanswered = 2}, {{1500ms, 7, "getVersion", reply, "V"}});
    comparison.incomplete = 5;
    const std::string figures = R"("requests":6,"same":3,"different":1,"unanswered":2,"percent":75.0)";
    EXPECT_EQ(jsonOf(comparison).dump(), "{\"total\":{" + figures + "},\"incomplete\":5,\"commands\":{\"getVersion\":{" +
                                             figures +
                                             R"(,"differences":[{"line":7,"offset":1.5,"request":"getVersion","recorded":")" +
                                             reply + R"(","simulated":"V"}]}}})");
    EXPECT_TRUE(jsonOf(comparisonWith({.same = 0, .different = 0, .unanswered = 1}))["total"]["percent"].is_null());
}

}  // namespace
