// Splits an input into the pieces in which the other end of a socket sends it.
#pragma once

#include "support.h"

#include <algorithm>
#include <deque>
#include <string>
#include <string_view>

namespace fuzz {

/// The first byte, modulo 8, is one less than the number of length bytes after it. A length byte is one less than the length of
/// a piece; the lengths repeat. The rest of the input is sent.
inline std::deque<std::string> piecesOf(const uint8_t *data, std::size_t size)
{
    std::deque<std::string> pieces;
    if (size == 0 || size < 2U + data[0] % 8) {
        return pieces;
    }
    const std::size_t lengths = 1U + data[0] % 8;
    std::string_view bytes(reinterpret_cast<const char *>(data) + 1 + lengths, size - 1 - lengths);
    for (std::size_t i = 0; !bytes.empty(); ++i) {
        const std::string_view piece = bytes.substr(0, 1U + data[1 + i % lengths]);
        pieces.emplace_back(piece);
        bytes.remove_prefix(piece.size());
    }
    return pieces;
}

inline std::string joined(const std::deque<std::string> &pieces)
{
    std::string all;
    for (const std::string &piece : pieces) {
        all += piece;
    }
    return all;
}

}  // namespace fuzz
