// Joining words with a separator between them.
#include "common/join.h"

#include <gtest/gtest.h>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Words = std::vector<std::string_view>;

TEST(Join, puts_the_separator_only_between_words)
{
    EXPECT_EQ(tools::join(Words{}, ", "), "");
    EXPECT_EQ(tools::join(Words{"one"}, ", "), "one");
    EXPECT_EQ(tools::join(Words{"one", "two", "three"}, ", "), "one, two, three");
}

TEST(Join, converts_elements_that_are_not_texts)
{
    const std::map<std::string, int> counts{{"a", 1}, {"b", 20}};
    EXPECT_EQ(tools::join(counts, "/", &std::pair<const std::string, int>::first), "a/b");
    EXPECT_EQ(tools::join(counts, "; ", [](const auto &count) { return std::to_string(count.second); }), "1; 20");
}

TEST(Join, appends_to_an_existing_list)
{
    std::string list;
    tools::appendTo(list, " ", "x");
    tools::appendTo(list, " ", "y");
    EXPECT_EQ(list, "x y");
}

}  // namespace
