// How a text is shown in a log line.
#include "kvosim/base/exchange_log.h"

#include <gtest/gtest.h>

namespace {

using kvosim::printable;

TEST(ExchangeLog, shows_printable_texts_unchanged)
{
    EXPECT_EQ(printable(""), "");
    EXPECT_EQ(printable("getDLV2 5"), "getDLV2 5");
    EXPECT_EQ(printable("Fräse \\ 100 %s"), "Fräse \\ 100 %s");
}

TEST(ExchangeLog, escapes_control_characters)
{
    EXPECT_EQ(printable(std::string("a\0b\r\n\t\x1b[31m\x7f", 12)), "a\\x00b\\x0D\\x0A\\x09\\x1B[31m\\x7F");
}

TEST(ExchangeLog, shortens_long_texts_and_shows_their_length)
{
    EXPECT_EQ(printable(std::string(120, 'a')), std::string(120, 'a'));
    EXPECT_EQ(printable(std::string(121, 'a')), std::string(120, 'a') + "... (121 bytes)");
}

TEST(ExchangeLog, does_not_cut_inside_a_utf8_character)
{
    EXPECT_EQ(printable(std::string(119, 'a') + "ääää"), std::string(119, 'a') + "... (127 bytes)");
}

}  // namespace
