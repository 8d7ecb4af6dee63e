// How two requests differ, and which of several is nearest.
#include "common/recording/difference.h"
#include "tools/kvosim/support/named_row.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using tools::recording::differenceOf;
using tools::recording::distanceOf;
using tools::recording::keywordOf;

struct DifferenceRow : kvosim_test::NamedRow {
    std::string request;
    std::string other;
    std::string difference;
};

class Difference : public testing::TestWithParam<DifferenceRow> {};

TEST_P(Difference, names_the_fields) { EXPECT_EQ(differenceOf(GetParam().request, GetParam().other), GetParam().difference); }

const std::vector<DifferenceRow> kDifferences = {
    {"equal", "getMCPAddress=0A000005", "getMCPAddress=0A000005", ""},
    {"station", "getMCPAddress=0A000006", "getMCPAddress=0A000005", "station 10.0.0.6 instead of 10.0.0.5"},
    {"number_that_is_not_an_address", "getIPbyKVOIndex=0000000B", "getIPbyKVOIndex=0000000A",
     R"(argument 1 is "0000000B" instead of "0000000A")"},
    {"keyword", "getVersion", "getDebugLevel", "different command"},
    {"value_before_the_station", "setBrightness=4 0A000005", "setBrightness=5 0A000005", R"(argument 1 is "4" instead of "5")"},
    {"two_fields", "setBrightness=4 0A000006", "setBrightness=5 0A000005",
     R"(argument 1 is "4" instead of "5"; station 10.0.0.6 instead of 10.0.0.5)"},
    {"comma", "setStatusline=0A000005,1,2,Off", "setStatusline=0A000005,1,2,On", R"(argument 4 is "Off" instead of "On")"},
    {"quoted_text", R"(setChannelInfo="Lathe 1" 0A000005)", R"(setChannelInfo="Lathe 2" 0A000005)",
     R"(argument 1 is "\"Lathe 1\"" instead of "\"Lathe 2\"")"},
    {"missing", "getDLV2", "getDLV2 2", R"(argument 1 is missing: "2")"},
    {"extra", "getDLV2 2 3", "getDLV2 2", R"(argument 2 is "3", which is extra)"},
    {"separator", "getDLV2=2", "getDLV2 2", "the separators differ"},
    {"many", "set=1 2 3 4 5", "set=a b c d e",
     R"(argument 1 is "1" instead of "a"; argument 2 is "2" instead of "b"; argument 3 is "3" instead of "c"; and 2 more)"},
    {"unfinished_quote", R"(setChannelInfo="a)", R"(setChannelInfo="b)", R"(argument 1 is "\"a" instead of "\"b")"},
    {"long_argument", "set=" + std::string(100, 'x'), "set=y",
     "argument 1 is \"" + std::string(60, 'x') + "\"... instead of \"y\""},
};

INSTANTIATE_TEST_SUITE_P(Table, Difference, testing::ValuesIn(kDifferences), kvosim_test::kNameOfRow);

TEST(Distance, counts_fields_before_characters)
{
    const auto of = [](const char *other) { return distanceOf("set=aaaa 0A000005", other); };
    EXPECT_EQ(of("set=aaaa 0A000005"), (tools::recording::Distance{0, 0}));
    EXPECT_LT(of("set=aaab 0A000005"), of("set=aabb 0A000005"));
    EXPECT_LT(of("set=bbbb 0A000005"), of("set=aaab 0A000006")) << "one field is nearer than two";
    EXPECT_LT(of("set=aaaa 0A000006"), of("set=aaaa"));
}

TEST(Keyword, ends_at_the_first_separator)
{
    EXPECT_EQ(keywordOf("getMCPAddress=0A000005"), "getMCPAddress");
    EXPECT_EQ(keywordOf("getDLV2 2"), "getDLV2");
    EXPECT_EQ(keywordOf("getVersion"), "getVersion");
    EXPECT_EQ(keywordOf(""), "");
}

}  // namespace
