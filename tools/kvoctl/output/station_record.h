// The service's description of a station as a document.
#pragma once

#include "kvoctl/output/output.h"

#include <kvo_hws/codecs.h>

#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>

namespace kvoctl {

struct Attribute {
    const char *key;
    const char *heading;
    uint32_t KvoDescriptionEx::*member;
};

inline constexpr std::array kExtendedAttributes{
    Attribute{"ext_attr1", "EXT1", &KvoDescriptionEx::extAttr1}, Attribute{"ext_attr2", "EXT2", &KvoDescriptionEx::extAttr2},
    Attribute{"ext_attr3", "EXT3", &KvoDescriptionEx::extAttr3}, Attribute{"ext_attr4", "EXT4", &KvoDescriptionEx::extAttr4},
    Attribute{"ext_attr5", "EXT5", &KvoDescriptionEx::extAttr5}, Attribute{"ext_attr6", "EXT6", &KvoDescriptionEx::extAttr6},
    Attribute{"ext_attr7", "EXT7", &KvoDescriptionEx::extAttr7},
};

template <class Record>
constexpr bool kIsExtended = std::is_same_v<Record, KvoDescriptionEx>;

template <class Record>
std::string nameOf(const Record &station)
{
    return {station.name, strnlen(station.name, sizeof station.name)};
}

/// Without a value if the service reports a malformed address.
using DottedAddress = std::optional<std::string>;

template <class Record>
Document document(const Record &station, const DottedAddress &address)
{
    Document fields{{"address", address ? Document(*address) : Document(nullptr)},
                    {"name", nameOf(station)},
                    {"attr1", station.attr1},
                    {"attr2", station.attr2},
                    {"attr3", station.attr3}};
    if constexpr (kIsExtended<Record>) {
        for (const Attribute &attribute : kExtendedAttributes) {
            fields[attribute.key] = station.*attribute.member;
        }
    }
    return fields;
}

}  // namespace kvoctl
