#include "common/recording/difference.h"

#include "common/dotted_address.h"
#include "common/recording/escape.h"
#include "common/recording/private_fields.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <vector>

namespace tools::recording {

namespace {

constexpr std::size_t kMostNamed = 3;
constexpr std::size_t kMostShown = 60;  // of one argument

std::string_view argumentsOf(std::string_view request)
{
    const std::size_t length = keywordOf(request).size();
    return request.substr(std::min(length + 1, request.size()));
}

/// The arguments of a request. Commas and blanks separate them. A quoted text is one argument; it ends at the last double quote.
std::vector<std::string_view> fieldsOf(std::string_view request)
{
    std::vector<std::string_view> fields;
    for (std::string_view rest = argumentsOf(request); !rest.empty();) {
        const std::size_t quote = rest.starts_with('"') ? rest.rfind('"') : 0;
        const std::size_t length = quote > 0 ? quote + 1 : std::min(rest.find_first_of(" ,"), rest.size());
        fields.push_back(rest.substr(0, length));
        rest.remove_prefix(length);
        rest.remove_prefix(rest.empty() || quote > 0 ? 0 : 1);
        rest.remove_prefix(quote > 0 && (rest.starts_with(' ') || rest.starts_with(',')) ? 1 : 0);
    }
    return fields;
}

std::size_t charactersApart(std::string_view one, std::string_view other)
{
    const std::size_t common = std::min(one.size(), other.size());
    std::size_t count = std::max(one.size(), other.size()) - common;
    for (std::size_t i = 0; i < common; ++i) {
        count += one[i] == other[i] ? 0 : 1;
    }
    return count;
}

/// A station's address in a request, as eight hexadecimal digits there.
std::optional<std::string> addressAt(std::string_view request, std::string_view field)
{
    const auto offset = static_cast<std::size_t>(field.data() - request.data());
    const std::vector<PrivateField> all = fieldsOfRequest(Kind::ask, request);
    const bool isAddress = std::ranges::any_of(all, [&](const PrivateField &each) {
        return each.offset == offset && each.length == field.size() && each.kind == PrivateField::Kind::number;
    });
    uint32_t address = 0;
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), address, 16);
    return isAddress && error == std::errc() && end == field.data() + field.size() ? std::optional(tools::dotted(address))
                                                                                   : std::nullopt;
}

std::string shown(std::string_view field)
{
    std::string text;
    appendQuoted(text, field.substr(0, kMostShown));
    return text + (field.size() > kMostShown ? "..." : "");
}

std::string differenceIn(std::size_t number, std::string_view request, std::string_view field, std::string_view other,
                         std::string_view otherField)
{
    const std::optional<std::string> station = addressAt(request, field);
    const std::optional<std::string> otherStation = addressAt(other, otherField);
    return station && otherStation
               ? "station " + *station + " instead of " + *otherStation
               : "argument " + std::to_string(number) + " is " + shown(field) + " instead of " + shown(otherField);
}

}  // namespace

std::string_view keywordOf(std::string_view request) { return request.substr(0, request.find_first_of("= ")); }

Distance distanceOf(std::string_view request, std::string_view other)
{
    const std::vector<std::string_view> fields = fieldsOf(request);
    const std::vector<std::string_view> others = fieldsOf(other);
    Distance distance;
    for (std::size_t i = 0; i < std::max(fields.size(), others.size()); ++i) {
        const std::string_view field = i < fields.size() ? fields[i] : std::string_view();
        const std::string_view otherField = i < others.size() ? others[i] : std::string_view();
        const bool isSame = i < fields.size() && i < others.size() && field == otherField;
        distance.fields += isSame ? 0 : 1;
        distance.characters += charactersApart(field, otherField);
    }
    return distance;
}

std::string differenceOf(std::string_view request, std::string_view other)
{
    if (request == other) {
        return {};
    }
    if (keywordOf(request) != keywordOf(other)) {
        return "different command";
    }
    const std::vector<std::string_view> fields = fieldsOf(request);
    const std::vector<std::string_view> others = fieldsOf(other);
    std::vector<std::string> found;
    for (std::size_t i = 0; i < std::max(fields.size(), others.size()); ++i) {
        const std::string number = std::to_string(i + 1);
        if (i >= others.size()) {
            found.push_back("argument " + number + " is " + shown(fields[i]) + ", which is extra");
        } else if (i >= fields.size()) {
            found.push_back("argument " + number + " is missing: " + shown(others[i]));
        } else if (fields[i] != others[i]) {
            found.push_back(differenceIn(i + 1, request, fields[i], other, others[i]));
        }
    }
    if (found.empty()) {
        return "the separators differ";
    }
    std::string text;
    for (std::size_t i = 0; i < std::min(found.size(), kMostNamed); ++i) {
        text += (i == 0 ? "" : "; ") + found[i];
    }
    return text + (found.size() > kMostNamed ? "; and " + std::to_string(found.size() - kMostNamed) + " more" : "");
}

}  // namespace tools::recording
