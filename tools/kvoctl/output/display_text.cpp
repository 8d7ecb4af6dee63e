// Measures and cuts texts character by character with the C library's functions.
#include "kvoctl/output/display_text.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cwchar>

namespace kvoctl {

namespace {

constexpr std::string_view kEllipsis = "…";
constexpr std::size_t kEllipsisWidth = 1;

std::string escaped(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        char escape[sizeof "\\xFF"];
        std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        text += escape;
    }
    return text;
}

/// Removes the first character from @p rest and returns it.
DisplayText nextCharacter(std::string_view &rest)
{
    std::mbstate_t fresh{};
    wchar_t character = 0;
    const std::size_t decoded = std::mbrtowc(&character, rest.data(), rest.size(), &fresh);
    // 0 means the character NUL; the two largest values mean invalid or incomplete bytes.
    const bool isCharacter = decoded != 0 && decoded <= rest.size();
    const std::string_view bytes = rest.substr(0, isCharacter ? decoded : 1);
    rest.remove_prefix(bytes.size());
    const int width = isCharacter ? wcwidth(character) : -1;
    if (width >= 0) {
        return {std::string(bytes), static_cast<std::size_t>(width)};
    }
    const std::string escape = escaped(bytes);
    return {escape, escape.size()};
}

bool isPlain(std::string_view raw)
{
    return std::all_of(raw.begin(), raw.end(), [](char byte) { return byte >= ' ' && byte <= '~'; });
}

}  // namespace

void useUtf8()
{
    if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
        // Without that locale the user's locale decides. If it is not UTF-8 either, names are shown escaped.
        std::setlocale(LC_CTYPE, "");
    }
}

DisplayText displayText(std::string_view raw, std::size_t limit)
{
    if (raw.size() <= limit && isPlain(raw)) {
        return {std::string(raw), raw.size()};
    }
    DisplayText shown{};
    // The part after which the ellipsis still fits.
    DisplayText kept{};
    while (!raw.empty()) {
        const DisplayText character = nextCharacter(raw);
        shown.text += character.text;
        shown.width += character.width;
        if (shown.width > limit) {
            kept.text += kEllipsis;
            kept.width += kEllipsisWidth;
            return kept;
        }
        if (shown.width <= limit - kEllipsisWidth) {
            kept = shown;
        }
    }
    return shown;
}

}  // namespace kvoctl
