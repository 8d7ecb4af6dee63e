// What every fuzzer needs: inputs that end where their memory ends, areas between guards, and a way to report what is wrong.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace fuzz {

/// Says what is wrong and ends the run; libFuzzer keeps the input.
[[noreturn]] __attribute__((format(printf, 1, 2))) inline void fault(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
    __builtin_trap();
}

/// The input as far as a C text reaches.
inline std::string_view textOf(const uint8_t *data, std::size_t size)
{
    const auto *const text = reinterpret_cast<const char *>(data);
    return {text, strnlen(text, size)};
}

/// A terminated text in a heap block of just its size, so that the address sanitizer sees every step beyond.
class ExactText {
public:
    explicit ExactText(std::string_view text) : block_(new char[text.size() + 1])
    {
        block_[text.copy(block_.get(), text.size())] = '\0';
    }

    [[nodiscard]] char *get() const { return block_.get(); }

private:
    std::unique_ptr<char[]> block_;
};

/// A heap block of just a text's bytes, without a terminator, so that the address sanitizer sees every step beyond.
class ExactBytes {
public:
    explicit ExactBytes(std::string_view text) : bytes_(text.begin(), text.end()) {}

    [[nodiscard]] std::string_view view() const { return {bytes_.data(), bytes_.size()}; }

private:
    std::vector<char> bytes_;
};

/// An area of equal bytes with a guard on either side, aligned for every record.
class GuardedArea {
public:
    GuardedArea(std::size_t size, uint8_t fill) : bytes_(kGuard + size + kGuard, kGuardByte)
    {
        std::memset(area(), fill, size);
    }

    [[nodiscard]] uint8_t *area() { return bytes_.data() + kGuard; }
    /// Guards included, so that equal areas lie between equal guards.
    bool operator==(const GuardedArea &) const = default;

    [[nodiscard]] bool guardsIntact() const
    {
        static const std::vector<uint8_t> guard(kGuard, kGuardByte);
        return std::memcmp(bytes_.data(), guard.data(), kGuard) == 0 &&
               std::memcmp(bytes_.data() + bytes_.size() - kGuard, guard.data(), kGuard) == 0;
    }

private:
    static constexpr std::size_t kGuard = 64;
    static constexpr uint8_t kGuardByte = 0xD7;

    std::vector<uint8_t> bytes_;
};

}  // namespace fuzz
