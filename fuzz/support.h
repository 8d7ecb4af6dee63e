// Support for all fuzzers: inputs that end at the end of their heap block, areas between guards, and the report of a fault.
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

/// Reports a fault and ends the run; libFuzzer keeps the input.
[[noreturn]] __attribute__((format(printf, 1, 2))) inline void fault(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
    __builtin_trap();
}

/// The input up to its first zero byte.
inline std::string_view textOf(const uint8_t *data, std::size_t size)
{
    const auto *const text = reinterpret_cast<const char *>(data);
    return {text, strnlen(text, size)};
}

/// A null-terminated text in a heap block of exactly its size, so the address sanitizer detects every access beyond it.
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

/// A heap block with exactly the bytes of a text and no terminator, so the address sanitizer detects every access beyond it.
class ExactBytes {
public:
    explicit ExactBytes(std::string_view text) : bytes_(text.begin(), text.end()) {}

    [[nodiscard]] std::string_view view() const { return {bytes_.data(), bytes_.size()}; }

private:
    std::vector<char> bytes_;
};

/// An area filled with one byte value, with a guard on each side. It is aligned for every record.
class GuardedArea {
public:
    GuardedArea(std::size_t size, uint8_t fill) : bytes_(kGuard + size + kGuard, kGuardByte)
    {
        std::memset(area(), fill, size);
    }

    [[nodiscard]] uint8_t *area() { return bytes_.data() + kGuard; }
    /// Compares the guards too.
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
