// Writes the log of --verbose.
#include "kvosim/base/exchange_log.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace kvosim {

namespace {

constexpr std::size_t kShownBytes = 120;

bool isControl(char character) noexcept { return static_cast<unsigned char>(character) < 0x20 || character == 0x7F; }

/// The first kShownBytes bytes or less: a UTF-8 character must not be cut.
std::string_view truncated(std::string_view text)
{
    std::size_t end = kShownBytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    return text.substr(0, end);
}

}  // namespace

std::string printable(std::string_view text)
{
    const bool shortened = text.size() > kShownBytes;
    std::string line;
    for (const char character : shortened ? truncated(text) : text) {
        if (isControl(character)) {
            std::array<char, 5> escaped{};
            std::snprintf(escaped.data(), escaped.size(), "\\x%02X", static_cast<unsigned>(character));
            line += escaped.data();
        } else {
            line += character;
        }
    }
    if (shortened) {
        line += "... (" + std::to_string(text.size()) + " bytes)";
    }
    return line;
}

std::string clockText(std::chrono::system_clock::time_point time)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
    std::array<char, 32> whole{};
    std::snprintf(whole.data(), whole.size(), "%s.%03d", text.data(), static_cast<int>(milliseconds));
    return whole.data();
}

void logLine(std::string_view line)
{
    std::fprintf(stderr, "%s %.*s\n", clockText(std::chrono::system_clock::now()).c_str(), static_cast<int>(line.size()),
                 line.data());
}

}  // namespace kvosim
