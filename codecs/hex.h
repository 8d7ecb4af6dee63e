// Reads and writes numbers of eight upper-case hexadecimal digits without tables and branches: one number as a 64-bit word,
// several numbers at once with the compiler's vector extensions.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kvo_hws::hex {

constexpr std::size_t kDigits = 8;

using TwoWords = uint64_t __attribute__((vector_size(16)));
using Pairs = uint16_t __attribute__((vector_size(16)));
using Characters = uint8_t __attribute__((vector_size(16)));
using Signed = int8_t __attribute__((vector_size(16)));

/// True if the machine compares all bytes of a vector at once. On other machines words are faster.
#if defined(__SSE2__) || defined(__ARM_NEON)
constexpr bool kHasVectors = std::endian::native == std::endian::little;
using FourNumbers = uint32_t __attribute__((vector_size(16)));
#else
constexpr bool kHasVectors = false;
using FourNumbers = std::array<uint32_t, 4>;
#endif

/// A word of eight equal bytes.
constexpr uint64_t everyByte(uint8_t byte) noexcept { return 0x0101010101010101U * byte; }

constexpr uint64_t swapBytes(uint64_t word) noexcept { return __builtin_bswap64(word); }

/// Loads a word whose lowest byte is the first character of the text, on every machine.
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

/// Collects the invalid characters of all numbers that were read.
struct Faults {
    Characters values{};   // a byte above 15 marks an invalid character
    Characters letters{};  // a byte other than 0 marks a letter with the value of a digit
    uint64_t ofWords = 0;  // not 0: an invalid character in a number that was read as a word

    [[nodiscard]] bool none() const noexcept
    {
        const auto both = reinterpret_cast<TwoWords>((values & 0xF0) | letters);
        return (both[0] | both[1] | ofWords) == 0;
    }
};

/// The values of eight characters 0-9 and A-F, one per byte.
inline uint64_t valuesOf(uint64_t characters, Faults &faults) noexcept
{
    // 1 in the bytes of A-F (0x41 ...), 0 in those of 0-9 (0x30 ...)
    const uint64_t letters = (characters >> 6) & everyByte(1);
    // Subtracts 7 from letters, so that they follow '9' directly and '0' is the offset of all characters.
    const uint64_t values = (characters - ((letters << 3) - letters)) ^ everyByte('0');
    // With 6 added, the values of A-F are 16 to 21 and those of 0-9 are 6 to 15, so the upper half of each byte is known. Any
    // other character has another upper half. So has a byte that overflows here; then the carry into the next byte does not
    // matter.
    faults.ofWords |= ((values + everyByte(6)) ^ (letters << 4)) & everyByte(0xF0);
    return values;
}

inline uint32_t read(const char *text, Faults &faults) noexcept
{
    uint64_t joined = swapBytes(valuesOf(load(text), faults));  // the first digit in the highest byte
    joined = (joined | joined >> 4) & 0x00FF00FF00FF00FFU;
    joined = (joined | joined >> 8) & 0x0000FFFF0000FFFFU;
    return static_cast<uint32_t>(joined | joined >> 16);
}

/// Reads a number below 256; a larger number is a fault. The value is computed from the last two characters only, which takes
/// fewer dependent steps.
inline uint32_t readByte(const char *text, Faults &faults) noexcept
{
    constexpr int kSixCharacters = 48;
    const uint64_t characters = load(text);
    faults.ofWords |= valuesOf(characters, faults) << (64 - kSixCharacters);
    const auto last = static_cast<uint32_t>(characters >> kSixCharacters);
    const uint32_t values = (last & 0x0F0F) + ((last >> 6) & 0x0101) * 9;
    return (values << 4 | values >> 8) & 0xFF;
}

/// Reads two numbers of eight characters. The upper byte of each pair has the value of two characters; the pairs of a number
/// are in reverse order.
inline void readPairs(Pairs &pairs, const char *first, const char *second, Faults &faults) noexcept
{
    const auto characters = reinterpret_cast<Characters>(TwoWords{load(first), load(second)});
    const auto letters = reinterpret_cast<Characters>(reinterpret_cast<Signed>(characters) > '9');
    const Characters values = characters - '0' - (letters & ('A' - '9' - 1));
    faults.values |= values;
    faults.letters |= letters ^ reinterpret_cast<Characters>(reinterpret_cast<Signed>(values) > 9);
    constexpr uint16_t kJoin = 0x1001;  // 16 * the first value + the second, in the upper byte
    const Pairs joined = reinterpret_cast<Pairs>(values) * kJoin;
    pairs = __builtin_shufflevector(joined, joined, 3, 2, 1, 0, 7, 6, 5, 4);
}

/// Reads four numbers; consecutive numbers begin @p distance characters apart.
inline FourNumbers readFour(const char *text, std::size_t distance, Faults &faults) noexcept
{
    if constexpr (!kHasVectors) {
        return FourNumbers{read(text, faults), read(text + distance, faults), read(text + 2 * distance, faults),
                           read(text + 3 * distance, faults)};
    }
    Pairs front;
    Pairs back;
    readPairs(front, text, text + distance, faults);
    readPairs(back, text + 2 * distance, text + 3 * distance, faults);
    return std::bit_cast<FourNumbers>(__builtin_shufflevector(reinterpret_cast<Characters>(front),
                                                              reinterpret_cast<Characters>(back), 1, 3, 5, 7, 9, 11, 13, 15, 17,
                                                              19, 21, 23, 25, 27, 29, 31));
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
    const auto bytes = reinterpret_cast<Bytes>(swapBytes(uint64_t{first} << 32 | second));  // highest digits first
    const auto pairs = __builtin_convertvector(bytes, Pairs);
    const auto digits = reinterpret_cast<Characters>((pairs >> 4 | pairs << 8) & 0x0F0F);
    const auto words = reinterpret_cast<TwoWords>(digits + '0' + ((digits > 9) & ('A' - '9' - 1)));
    store(firstText, words[0]);
    store(secondText, words[1]);
}

}  // namespace kvo_hws::hex
