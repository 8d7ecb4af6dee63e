// Makes readers from the library's requests. The functions are named after the type of the reply.
#pragma once

#include "common/station/property.h"

#include <kvo_hws/result.h>

#include <array>
#include <string>
#include <tuple>
#include <utility>

namespace tools {

/// One or more numbers.
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

/// A number that stands for a word: the index in @p words. A number without a word is shown as a number.
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

/// A text that the library writes to a buffer without knowing its size.
Reader unsizedText(Request<uint32_t, char *> request);

/// Requests a text. @p size is the size of @p buffer. If that is too small, returns -3 and stores the required size in @p size.
using TextRequest = std::function<Result(char *buffer, uint32_t *size)>;

/// A text of any length: repeats the request with a larger buffer until the text fits.
Reading readText(const TextRequest &ask);

/// A text that the library writes to a buffer whose size it knows.
Reader sizedText(Request<uint32_t, char *, uint32_t *> request);

}  // namespace tools
