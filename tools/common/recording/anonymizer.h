// Replaces the addresses, names and free texts of a recording, so that it can be given to others.
#pragma once

#include "common/recording/line.h"
#include "common/recording/private_fields.h"
#include "common/recording/replacements.h"

#include <string>
#include <string_view>

namespace tools::recording {

/// The same original always becomes the same replacement, in all lines that one object has seen. Keywords, results, numbers, the
/// names of programs, times and the sizes of pieces stay, so that faults can still be found and a program's requests still fit.
class Anonymizer {
public:
    /// The line with replacements. A Nothing stays empty: the text of a comment is not kept. A PlantLine becomes a Nothing, because a
    /// line of a plant file cannot be understood alone: use anonymizePlant.
    Line anonymize(const Line &line);
    Exchange anonymize(Exchange exchange);
    /// Only the addresses in a note are replaced.
    Note anonymize(Note note);
    /// The whole text of a plant file, without its comments. Texts have the same replacements as in exchanges, so that a plant still
    /// fits the recording.
    std::string anonymizePlant(std::string_view toml);
    /// A request or an event that is not part of a recording.
    std::string anonymizeRequest(Kind kind, std::string_view request);
    /// A text for people. Addresses are replaced, also those in eight hexadecimal digits, and the names that this object has seen.
    std::string anonymizeText(std::string_view text);
    /// A name that is replaced from now on: of a person or of this machine.
    void addName(std::string_view name);

    /// The number of different addresses that were replaced.
    [[nodiscard]] std::size_t addresses() const noexcept { return addresses_.count(); }
    /// The number of different names and texts that were replaced.
    [[nodiscard]] std::size_t texts() const noexcept { return texts_.count(); }

private:
    [[nodiscard]] std::vector<PrivateField> fieldsOfText(std::string_view text) const;
    std::string replacementOf(const PrivateField &field, std::string_view original);
    void replace(std::vector<Piece> &pieces, const std::vector<PrivateField> &fields);
    std::string replaced(std::string text, const std::vector<PrivateField> &fields);

    AddressReplacements addresses_;
    TextReplacements texts_;
};

}  // namespace tools::recording
