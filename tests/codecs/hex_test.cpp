// Eight digits as one word: every digit in every place, every other byte refused.
#include "codecs/hex.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

namespace hex = kvo_hws::hex;

TEST(Hex, reads_what_printf_writes_and_writes_the_same)
{
    std::mt19937 random(7);
    for (int round = 0; round < 100'000; ++round) {
        const auto value = round < 256 ? static_cast<uint32_t>(round) * 0x01010101U : static_cast<uint32_t>(random());
        char printed[9];
        std::snprintf(printed, sizeof printed, "%08X", value);
        const hex::Read read = hex::read(printed);
        ASSERT_EQ(read.faults, 0U) << printed;
        ASSERT_EQ(read.value, value) << printed;
        char written[9] = "........";
        hex::write(written, value);
        ASSERT_STREQ(written, printed);
    }
}

TEST(Hex, refuses_every_other_byte_in_every_place)
{
    const std::string digits = "0123456789ABCDEF";
    for (std::size_t place = 0; place < hex::kDigits; ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            for (const char around : {'0', '9', 'A', 'F'}) {
                std::string text(hex::kDigits, around);
                text[place] = static_cast<char>(byte);
                const bool isDigit = byte != 0 && digits.find(static_cast<char>(byte)) != std::string::npos;
                ASSERT_EQ(hex::read(text.data()).faults == 0, isDigit)
                    << "byte " << byte << " at " << place << " among " << around;
            }
        }
    }
}

}  // namespace
