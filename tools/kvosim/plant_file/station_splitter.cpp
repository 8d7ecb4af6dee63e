// Finds the [[station]] headers and checks that only blanks precede them in their lines.
#include "kvosim/plant_file/station_splitter.h"

namespace kvosim {

namespace {

constexpr std::string_view kHeader = "[[station]]";

/// The beginning of the line that contains @p at if only blanks come before @p at, else npos.
std::size_t beginOfLine(std::string_view text, std::size_t at)
{
    const std::size_t last = text.substr(0, at).find_last_not_of(" \t");
    if (last == std::string_view::npos) {
        return 0;
    }
    return text[last] == '\n' ? last + 1 : std::string_view::npos;
}

}  // namespace

std::vector<std::string_view> splitAtStations(std::string_view text)
{
    std::vector<std::string_view> pieces;
    std::size_t begin = 0;
    for (std::size_t at = text.find(kHeader); at != std::string_view::npos; at = text.find(kHeader, at + kHeader.size())) {
        if (const std::size_t line = beginOfLine(text, at); line != std::string_view::npos) {
            pieces.push_back(text.substr(begin, line - begin));
            begin = line;
        }
    }
    pieces.push_back(text.substr(begin));
    return pieces;
}

}  // namespace kvosim
