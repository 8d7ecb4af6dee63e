// The library's number reader compared with the C library's: for every text they must agree.
#include "runtime/numbers.h"

#include <clocale>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

void expectAsStrtoul(const std::string &text, int base)
{
    char *end = nullptr;
    const unsigned long value = std::strtoul(text.c_str(), &end, base);
    const auto read = kvo_hws::readNumber(text.c_str(), base);
    EXPECT_EQ(read.value, value) << '"' << text << "\" base " << base;
    EXPECT_EQ(read.end, end) << '"' << text << "\" base " << base;
}

TEST(Numbers, read_every_kind_of_text_as_strtoul_does)
{
    for (const char *text : {"",
                             "0",
                             "7",
                             "42 ",
                             "000000000",
                             "999999999",
                             "1234567890",
                             "4294967295",
                             "4294967296",
                             "18446744073709551615",
                             "18446744073709551616",
                             "99999999999999999999999",
                             "-1",
                             "+5",
                             " 5",
                             "\t\n 5x",
                             "- 5",
                             "0x1F",
                             "0x",
                             "0xg",
                             "x",
                             "5x",
                             "1F",
                             "ffffffff ",
                             "FFFFFFFFFFFFFFFFFFFF",
                             "12\n",
                             "-0",
                             "--1"}) {
        expectAsStrtoul(text, 10);
        expectAsStrtoul(text, 16);
    }
}

TEST(Numbers, read_random_texts_as_strtoul_does)
{
    std::mt19937 random(20240501);
    const std::string alphabet = "0123456789abcfxX+- \t\n.,:";
    for (int round = 0; round < 200'000; ++round) {
        std::string text;
        for (auto length = random() % 14; length > 0; --length) {
            text += alphabet[random() % alphabet.size()];
        }
        expectAsStrtoul(text, round % 2 == 0 ? 10 : 16);
    }
}

TEST(Numbers, signed_numbers_are_read_as_strtol_does)
{
    for (const char *text :
         {"", "0", "-1", "+7", "  -3x", "9223372036854775808", "-9223372036854775809", "0x10", "2147483648"}) {
        char *end = nullptr;
        const long value = std::strtol(text, &end, 10);
        const auto read = kvo_hws::readSigned(text);
        EXPECT_EQ(read.value, value) << text;
        EXPECT_EQ(read.end, end) << text;
    }
}

}  // namespace
