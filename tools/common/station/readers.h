// Makes readers out of the library's requests, by what these hand out.
#pragma once

#include "common/station/property.h"

#include <kvo_hws/result.h>

#include <array>
#include <string>
#include <tuple>
#include <utility>

namespace tools {

/// One number or more, all of them or none.
template <class... Numbers>
Reader numbers(Request<uint32_t, Numbers *...> request)
{
    return [request](uint32_t station) -> Reading {
        std::tuple<Numbers...> values{};
        const Result result = std::apply([&](Numbers &...value) { return request(station, &value...); }, values);
        if (result.code != KVO_HWS_OK) {
            return {result};
        }
        return {result, std::apply([](Numbers... value) { return std::vector<Value>{Value{value}...}; }, values)};
    };
}

/// A number that stands for a word; one without a word is shown as it is.
template <std::size_t Count>
Reader word(Request<uint32_t, uint32_t *> request, std::array<const char *, Count> words)
{
    return [request, words](uint32_t station) -> Reading {
        uint32_t number = 0;
        const Result result = request(station, &number);
        if (result.code != KVO_HWS_OK) {
            return {result};
        }
        return {result, {number < Count ? Value{words[number]} : Value{number}}};
    };
}

/// The result itself is the answer: 1 yes, 0 no.
Reader yesNo(Request<uint32_t> request);

/// A text of which the library asks no size.
Reader unsizedText(Request<uint32_t, char *> request);

/// @p ask is given a buffer and its in/out size; a request that finds it too small (-3) tells what it needs there.
using AskText = std::function<Result(char *buffer, uint32_t *size)>;

/// A text of any length, asked for again with more room until it fits.
Reading readText(const AskText &ask);

/// As readText, of one station.
Reader sizedText(Request<uint32_t, char *, uint32_t *> request);

}  // namespace tools
