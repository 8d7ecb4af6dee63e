// Sizes with units.
#include "kvoctl/trace/size_argument.h"

#include <gtest/gtest.h>

namespace {

using kvoctl::parseSize;

TEST(Size, has_a_unit_or_none)
{
    EXPECT_EQ(parseSize("1"), 1U);
    EXPECT_EQ(parseSize("4096"), 4096U);
    EXPECT_EQ(parseSize("20k"), 20U * 1024);
    EXPECT_EQ(parseSize("20K"), 20U * 1024);
    EXPECT_EQ(parseSize("20M"), 20U * 1024 * 1024);
    EXPECT_EQ(parseSize("3G"), 3ULL << 30U);
    EXPECT_EQ(parseSize("18446744073709551615"), UINT64_MAX);
}

TEST(Size, is_nothing_for_other_texts)
{
    for (const char *text : {"", "0", "0k", "-1", "+1", " 1", "1 k", "1kB", "1KiB", "1m", "1T", "k", "1.5M", "0x10",
                             "18446744073709551616", "18446744073709551615k", "17179869184G"}) {
        EXPECT_EQ(parseSize(text), std::nullopt) << text;
    }
}

}  // namespace
