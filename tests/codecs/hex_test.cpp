// Eight hexadecimal digits as words and as vectors: every digit in every position, and every other byte refused.
#include "codecs/hex.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

namespace hex = kvo_hws::hex;

constexpr std::size_t kDistance = hex::kDigits + 1;  // from one number to the next in lists

bool isDigit(int byte)
{
    return byte != 0 && std::string("0123456789ABCDEF").find(static_cast<char>(byte)) != std::string::npos;
}

TEST(Hex, reads_what_printf_writes_and_writes_the_same)
{
    std::mt19937 random(7);
    for (int round = 0; round < 100'000; ++round) {
        const auto value = round < 256 ? static_cast<uint32_t>(round) * 0x01010101U : static_cast<uint32_t>(random());
        char printed[9];
        std::snprintf(printed, sizeof printed, "%08X", value);
        hex::Faults faults;
        ASSERT_EQ(hex::read(printed, faults), value) << printed;
        ASSERT_TRUE(faults.none()) << printed;
        char written[9] = "........";
        hex::write(written, value);
        ASSERT_STREQ(written, printed);
    }
}

TEST(Hex, reads_four_numbers_at_a_time)
{
    std::mt19937 random(7);
    for (int round = 0; round < 100'000; ++round) {
        uint32_t values[4];
        for (uint32_t &value : values) {
            value = static_cast<uint32_t>(random());
        }
        char printed[4 * kDistance + 1];
        std::snprintf(printed, sizeof printed, "%08X %08X %08X %08X ", values[0], values[1], values[2], values[3]);
        hex::Faults faults;
        const hex::FourNumbers read = hex::readFour(printed, kDistance, faults);
        ASSERT_TRUE(faults.none()) << printed;
        for (std::size_t number = 0; number < 4; ++number) {
            ASSERT_EQ(read[number], values[number]) << printed;
        }
    }
}

TEST(Hex, reads_bytes_and_refuses_larger_numbers)
{
    for (uint32_t value = 0; value < 256; ++value) {
        char printed[9];
        std::snprintf(printed, sizeof printed, "%08X", value);
        hex::Faults faults;
        ASSERT_EQ(hex::readByte(printed, faults), value);
        ASSERT_TRUE(faults.none()) << printed;
    }
    for (uint32_t bit = 256; bit != 0; bit <<= 1) {
        char printed[9];
        std::snprintf(printed, sizeof printed, "%08X", bit);
        hex::Faults faults;
        hex::readByte(printed, faults);
        ASSERT_FALSE(faults.none()) << printed;
    }
}

TEST(Hex, refuses_every_other_byte_in_every_position)
{
    for (std::size_t place = 0; place < hex::kDigits; ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            for (const char around : {'0', '9', 'A', 'F'}) {
                std::string text(hex::kDigits, around);
                text[place] = static_cast<char>(byte);
                hex::Faults faults;
                hex::read(text.data(), faults);
                ASSERT_EQ(faults.none(), isDigit(byte)) << "byte " << byte << " at " << place << " among " << around;
            }
        }
    }
}

TEST(Hex, refuses_every_other_byte_in_every_position_of_four_numbers)
{
    for (std::size_t place = 0; place < 4 * kDistance - 1; ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            for (const char around : {'0', '9', 'A', 'F'}) {
                std::string text(4 * kDistance, around);
                text[place] = static_cast<char>(byte);
                const bool isSeparator = place % kDistance == hex::kDigits;  // not checked
                hex::Faults faults;
                hex::readFour(text.data(), kDistance, faults);
                ASSERT_EQ(faults.none(), isSeparator || isDigit(byte))
                    << "byte " << byte << " at " << place << " among " << around;
            }
        }
    }
}

TEST(Hex, refuses_every_other_byte_in_both_positions_of_a_byte)
{
    for (std::size_t place = hex::kDigits - 2; place < hex::kDigits; ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            for (const char around : {'0', '9', 'A', 'F'}) {
                std::string text = std::string(hex::kDigits - 2, '0') + std::string(2, around);
                text[place] = static_cast<char>(byte);
                hex::Faults faults;
                hex::readByte(text.data(), faults);
                ASSERT_EQ(faults.none(), isDigit(byte)) << "byte " << byte << " at " << place << " among " << around;
            }
        }
    }
}

}  // namespace
