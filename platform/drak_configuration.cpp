// libdrak.so: the configuration file reader, for files of "key = value" lines.
#include <kvo_hws/platform.h>

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>

HwsKeyword *keywords = nullptr;

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) noexcept
{
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool isEnd(const HwsKeyword &row) noexcept { return row.key == nullptr || *row.key == '\0'; }

void applyDefaults() noexcept
{
    for (const HwsKeyword *row = keywords; !isEnd(*row); ++row) {
        if (row->defaultText != nullptr && *row->defaultText != '\0') {
            row->reader(row->defaultText, row->destination);
        }
    }
}

/// A "#" at the start of the line or after a blank begins a comment; inside a word it is part of the value.
std::string_view withoutComment(std::string_view line) noexcept
{
    for (auto hash = line.find('#'); hash != std::string_view::npos; hash = line.find('#', hash + 1)) {
        if (hash == 0 || kBlanks.find(line[hash - 1]) != std::string_view::npos) {
            return line.substr(0, hash);
        }
    }
    return line;
}

void applyLine(std::string_view line)
{
    const std::string_view text = trimmed(withoutComment(line));
    const auto equals = text.find('=');
    if (equals == std::string_view::npos) {
        return;
    }
    const std::string_view key = trimmed(text.substr(0, equals));
    const std::string value(trimmed(text.substr(equals + 1)));
    for (const HwsKeyword *row = keywords; !isEnd(*row); ++row) {
        if (key == row->key) {
            row->reader(value.c_str(), row->destination);
            return;
        }
    }
}

int applyFile(const char *name)
{
    std::ifstream file(name);
    if (!file) {
        return -1;
    }
    for (std::string line; std::getline(file, line);) {
        applyLine(line);
    }
    return file.bad() ? -1 : 0;
}

}  // namespace

int read_conf(void *block[4]) noexcept
{
    if (keywords == nullptr) {
        return -1;
    }
    try {
        applyDefaults();
        return block == nullptr || block[0] == nullptr ? -1 : applyFile(static_cast<const char *>(block[0]));
    } catch (...) {
        return -1;  // out of memory, for example for a very long line
    }
}

int read_str(const char *value, void *destination) noexcept
{
    char *const copy = strdup(value);
    if (copy == nullptr) {
        return 0;
    }
    std::memcpy(destination, &copy, sizeof copy);
    return 1;
}

int read_int(const char *value, void *destination) noexcept { return read_str(value, destination); }

int read_u16(const char *value, void *destination) noexcept
{
    const char *const end = value + std::strlen(value);
    uint16_t number = 0;
    const auto [stop, error] = std::from_chars(value, end, number);
    if (error != std::errc{} || stop != end || stop == value) {
        return 0;
    }
    std::memcpy(destination, &number, sizeof number);
    return 1;
}
