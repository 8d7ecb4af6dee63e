// Makes readers from the library's requests, by the type of their result.
#pragma once

#include "common/station/property.h"

#include <kvo_hws/result.h>

#include <array>
#include <string>
#include <tuple>
#include <utility>

namespace tools {

/// One number or several: all of them or none.
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

/// A number that stands for a word. A number without a word is shown unchanged.
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

/// The result itself is the answer: 1 is yes, 0 is no.
Reader yesNo(Request<uint32_t> request);

/// A text for which the library takes no buffer size.
Reader unsizedText(Request<uint32_t, char *> request);

/// Takes a buffer and its in/out size. A request for which the buffer is too small (-3) stores the required size there.
using TextRequest = std::function<Result(char *buffer, uint32_t *size)>;

/// A text of any length: repeats the request with a larger buffer until the text fits.
Reading readText(const TextRequest &ask);

/// Like readText, for one station.
Reader sizedText(Request<uint32_t, char *, uint32_t *> request);

}  // namespace tools
