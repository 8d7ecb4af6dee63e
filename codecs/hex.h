// Upper-case hexadecimal digits, eight to a number, in both directions and without a table or a branch: one number as a 64-bit
// word, two at a time as a vector of two such words. The vectors are the compiler's own, which every machine has.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kvo_hws::hex {

constexpr std::size_t kDigits = 8;

using TwoWords = uint64_t __attribute__((vector_size(16)));

/// The same byte eight times.
constexpr uint64_t everyByte(uint8_t byte) noexcept { return 0x0101010101010101U * byte; }

constexpr uint64_t swapBytes(uint64_t word) noexcept { return __builtin_bswap64(word); }

/// A word whose lowest byte is the text's first character, on every machine.
inline uint64_t load(const char *text) noexcept
{
    uint64_t word;
    std::memcpy(&word, text, sizeof word);
    return std::endian::native == std::endian::little ? word : swapBytes(word);
}

inline void store(char *text, uint64_t word) noexcept
{
    if constexpr (std::endian::native != std::endian::little) {
        word = swapBytes(word);
    }
    std::memcpy(text, &word, sizeof word);
}

// ---- Reading ----

/// What eight characters mean, one a byte. @c faults has a bit in the upper half of some byte exactly when one of them was not
/// 0-9 or A-F; the lower halves mean nothing. Several can be judged at once by the OR of their faults.
template <class Word>
struct Digits {
    explicit Digits(const Word &characters) noexcept
    {
        // 1 in the bytes of A-F (0x41 ...), 0 in those of 0-9 (0x30 ...)
        const Word letters = (characters >> 6) & everyByte(1);
        // Letters are brought down to where '9' ends, so that '0' is all that is left to take off.
        values = (characters - ((letters << 3) - letters)) ^ everyByte('0');
        // Six more, and a letter's value is 16 to 21 and a digit's 6 to 15; whatever was neither has another upper half. A byte
        // that overflows here has one as well, so what it carries into its neighbour does not matter any more.
        faults = (values + everyByte(6)) ^ (letters << 4);
    }

    Word values;
    Word faults;
};

constexpr uint64_t kFaultBits = everyByte(0xF0);

/// What eight characters read as. @c faults is 0 exactly when all of them were 0-9 or A-F.
struct Read {
    uint32_t value;
    uint64_t faults;
};

inline Read read(const char *text) noexcept
{
    const Digits digits(load(text));
    uint64_t joined = swapBytes(digits.values);  // the first digit highest
    joined = (joined | joined >> 4) & 0x00FF00FF00FF00FFU;
    joined = (joined | joined >> 8) & 0x0000FFFF0000FFFFU;
    joined |= joined >> 16;
    return {static_cast<uint32_t>(joined), digits.faults & kFaultBits};
}

/// Reads two numbers; the first comes out in the upper half.
inline uint64_t readTwo(const char *first, const char *second, TwoWords &faults) noexcept
{
    if constexpr (std::endian::native != std::endian::little) {
        const Read reads[] = {read(first), read(second)};
        faults |= TwoWords{reads[0].faults, reads[1].faults};
        return uint64_t{reads[0].value} << 32 | reads[1].value;
    }
    using Pairs = uint16_t __attribute__((vector_size(16)));
    using Bytes = uint8_t __attribute__((vector_size(8)));
    const Digits digits(TwoWords{load(first), load(second)});
    faults |= digits.faults;
    const TwoWords pairs = digits.values << 4 | digits.values >> 8;  // two digits in every other byte
    return swapBytes(reinterpret_cast<uint64_t>(__builtin_convertvector(reinterpret_cast<Pairs>(pairs), Bytes)));
}

// ---- Writing ----

/// Writes exactly eight characters.
inline void write(char *text, uint32_t value) noexcept
{
    uint64_t spread = value;
    spread = (spread | spread << 16) & 0x0000FFFF0000FFFFU;
    spread = (spread | spread << 8) & 0x00FF00FF00FF00FFU;
    const uint64_t nibbles = (spread | spread << 4) & everyByte(0x0F);  // the first digit in the highest byte
    const uint64_t letters = ((nibbles + everyByte(6)) >> 4) & everyByte(1);
    store(text, swapBytes(nibbles + everyByte('0') + letters * 7));
}

/// Writes two numbers, eight characters each.
inline void writeTwo(char *firstText, uint32_t first, char *secondText, uint32_t second) noexcept
{
    if constexpr (std::endian::native != std::endian::little) {
        write(firstText, first);
        write(secondText, second);
        return;
    }
    using Bytes = uint8_t __attribute__((vector_size(8)));
    using Pairs = uint16_t __attribute__((vector_size(16)));
    using Characters = uint8_t __attribute__((vector_size(16)));
    const auto bytes = reinterpret_cast<Bytes>(swapBytes(uint64_t{first} << 32 | second));  // the first digits come first
    const auto pairs = __builtin_convertvector(bytes, Pairs);
    const auto digits = reinterpret_cast<Characters>((pairs >> 4 | pairs << 8) & 0x0F0F);
    const auto words = reinterpret_cast<TwoWords>(digits + '0' + ((digits > 9) & ('A' - '9' - 1)));
    store(firstText, words[0]);
    store(secondText, words[1]);
}

}  // namespace kvo_hws::hex
