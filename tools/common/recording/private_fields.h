// Finds the addresses, names and free texts in requests, replies and events.
#pragma once

#include "common/recording/line.h"

#include <optional>
#include <string_view>
#include <vector>

namespace tools::recording {

/// A part of a text that says something about a plant.
struct PrivateField {
    enum class Kind : uint8_t {
        number,  ///< an address as eight hexadecimal digits
        dotted,  ///< a dotted address
        name,    ///< the name of a station, a server or a program
        text,    ///< another text
    };

    std::size_t offset;
    std::size_t length;
    Kind kind;
    std::optional<std::size_t> lengthOffset{};  ///< of the eight hexadecimal digits that contain the field's length
};

/// The private fields of what the asking side has sent, in the order of their offsets. In a request of an unknown form, everything
/// except its keyword and numbers is private.
std::vector<PrivateField> fieldsOfRequest(Kind kind, std::string_view request);

/// The private fields of a reply to @p request. In a reply of an unknown form, everything is private except results, numbers, the
/// keys of values, and words of the request's keyword.
std::vector<PrivateField> fieldsOfReply(Kind kind, std::string_view request, std::string_view reply);

/// The private fields of a text in a plant file: the same that it has in requests, replies and events.
std::vector<PrivateField> fieldsOfPlantValue(std::string_view key, std::string_view value);

/// The dotted addresses in a text for people.
std::vector<PrivateField> addressesIn(std::string_view text);

}  // namespace tools::recording
