#include "common/recording/anonymizer.h"

#include "common/dotted_address.h"
#include "common/toml_text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace tools::recording {

namespace {

constexpr std::size_t kHexLength = 8;

std::string hex(std::size_t value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%08zX", value);
    return text;
}

/// Eight hexadecimal digits that are a word.
std::optional<uint32_t> hexAddressAtFront(std::string_view text)
{
    const std::string_view digits = text.substr(0, kHexLength);
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    const bool isAll = digits.size() == kHexLength && error == std::errc() && end == digits.data() + digits.size();
    const bool isWord = text.size() == kHexLength || (isAll && !isWordCharacter(text[kHexLength]));
    return isAll && isWord ? std::optional(number) : std::nullopt;
}

/// Where the next word or the next separator begins.
std::size_t endOfWord(std::string_view text, std::size_t at)
{
    std::size_t end = at + 1;
    while (isWordCharacter(text[at]) && end < text.size() && isWordCharacter(text[end])) {
        ++end;
    }
    return end;
}

/// Copies a text with replacements, and follows where the ends of its pieces move to.
class Copy {
public:
    Copy(std::string_view original, const std::vector<Piece> &pieces) : original_(original)
    {
        std::size_t end = 0;
        for (const Piece &piece : pieces) {
            end += piece.bytes.size();
            ends_.push_back(end);
        }
    }

    /// Replaces @p length bytes at @p offset, which is not before the end of the previous replacement.
    void replace(std::size_t offset, std::size_t length, std::string_view replacement)
    {
        copyUntil(offset);
        for (; nextEnd_ < ends_.size() && ends_[nextEnd_] < offset + length; ++nextEnd_) {
            ends_[nextEnd_] = copy_.size() + std::min(ends_[nextEnd_] - offset, replacement.size());
        }
        copy_ += replacement;
        copied_ = offset + length;
    }

    void storeIn(std::vector<Piece> &pieces)
    {
        copyUntil(original_.size());
        std::size_t begin = 0;
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            pieces[i].bytes = copy_.substr(begin, ends_[i] - begin);
            begin = ends_[i];
        }
    }

private:
    void copyUntil(std::size_t offset)
    {
        for (; nextEnd_ < ends_.size() && ends_[nextEnd_] <= offset; ++nextEnd_) {
            ends_[nextEnd_] = copy_.size() + ends_[nextEnd_] - copied_;
        }
        copy_ += original_.substr(copied_, offset - copied_);
        copied_ = offset;
    }

    std::string_view original_;
    std::size_t copied_ = 0;  // of the original
    std::string copy_;
    std::vector<std::size_t> ends_;  // those before nextEnd_ are ends in the copy, the others in the original
    std::size_t nextEnd_ = 0;
};

}  // namespace

std::string Anonymizer::replacementOf(const PrivateField &field, std::string_view original)
{
    switch (field.kind) {
    case PrivateField::Kind::number: {
        uint32_t address = 0;
        std::from_chars(original.data(), original.data() + original.size(), address, 16);
        return hex(addresses_.of(address));
    }
    case PrivateField::Kind::dotted: return dotted(addresses_.of(parseDotted(std::string(original)).value_or(0)));
    case PrivateField::Kind::name: return texts_.of(original, kNamePrefix);
    case PrivateField::Kind::text: break;
    }
    return texts_.of(original, "text");
}

void Anonymizer::replace(std::vector<Piece> &pieces, const std::vector<PrivateField> &fields)
{
    const std::string original = joined(pieces);
    Copy copy(original, pieces);
    for (const PrivateField &field : fields) {
        const std::string replacement = replacementOf(field, original.substr(field.offset, field.length));
        if (field.lengthOffset) {
            copy.replace(*field.lengthOffset, kHexLength, hex(replacement.size()));
        }
        copy.replace(field.offset, field.length, replacement);
    }
    copy.storeIn(pieces);
}

std::string Anonymizer::replaced(std::string text, const std::vector<PrivateField> &fields)
{
    std::vector<Piece> pieces{{{}, std::move(text)}};
    replace(pieces, fields);
    return joined(pieces);
}

Exchange Anonymizer::anonymize(Exchange exchange)
{
    const std::string request = joined(exchange.request);
    replace(exchange.request, fieldsOfRequest(exchange.kind, request));
    replace(exchange.reply, fieldsOfReply(exchange.kind, request, joined(exchange.reply)));
    return exchange;
}

Note Anonymizer::anonymize(Note note) { return {note.at, replaced(note.text, addressesIn(note.text))}; }

Line Anonymizer::anonymize(const Line &line)
{
    if (const auto *exchange = std::get_if<Exchange>(&line)) {
        return anonymize(*exchange);
    }
    if (const auto *note = std::get_if<Note>(&line)) {
        return anonymize(*note);
    }
    return std::holds_alternative<PlantLine>(line) ? Nothing{} : line;
}

std::string Anonymizer::anonymizeRequest(Kind kind, std::string_view request)
{
    return replaced(std::string(request), fieldsOfRequest(kind, request));
}

std::string Anonymizer::anonymizePlant(std::string_view toml)
{
    return replaceStrings(toml, [this](std::string_view key, std::string_view text) -> std::optional<std::string> {
        const std::vector<PrivateField> fields = fieldsOfPlantValue(key, text);
        return fields.empty() ? std::nullopt : std::optional(replaced(std::string(text), fields));
    });
}

std::vector<PrivateField> Anonymizer::fieldsOfText(std::string_view text) const
{
    std::vector<PrivateField> fields;
    const std::vector<PrivateField> addresses = addressesIn(text);
    auto address = addresses.begin();
    for (std::size_t at = 0; at < text.size();) {
        for (; address != addresses.end() && address->offset < at; ++address) {
        }
        const std::string_view name = texts_.nameAtFront(text.substr(at));
        if (!name.empty()) {
            fields.push_back({at, name.size(), PrivateField::Kind::name});
        } else if (address != addresses.end() && address->offset == at) {
            fields.push_back(*address);
        } else if (const auto number = hexAddressAtFront(text.substr(at)); number && addresses_.isProbable(*number)) {
            fields.push_back({at, kHexLength, PrivateField::Kind::number});
        } else {
            const std::size_t next = endOfWord(text, at);
            const bool isInside = address != addresses.end() && address->offset > at && address->offset < next;
            at = isInside ? address->offset : next;
            continue;
        }
        at += fields.back().length;
    }
    return fields;
}

void Anonymizer::addName(std::string_view name)
{
    if (!parseDotted(std::string(name))) {
        texts_.of(name, kNamePrefix);
    }
}

std::string Anonymizer::anonymizeText(std::string_view text)
{
    for (const PrivateField &field : addressesIn(text)) {  // so that they are known in their other form
        replacementOf(field, text.substr(field.offset, field.length));
    }
    std::vector<Piece> pieces{{{}, std::string(text)}};
    replace(pieces, fieldsOfText(text));
    return joined(pieces);
}

}  // namespace tools::recording
