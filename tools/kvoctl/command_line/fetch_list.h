// Fetches the lists of stations and clients; repeats the request until the whole list fits.
#pragma once

#include "kvoctl/output/result.h"

#include <kvo_hws/requests.h>
#include <kvo_hws/result.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kvoctl {

/// The capacity of the first request. Most plants are smaller.
inline constexpr uint32_t kInitialEntries = 64;
/// A larger number is treated as a mistake of the service: kvoctl does not allocate that much memory.
inline constexpr uint32_t kMaxEntries = 1'000'000;
/// The list may grow between the request that reports its size and the next one. After this many requests, fetchList fails.
inline constexpr int kMaxAttempts = 8;

/// Returns the whole list. @p ask sends the request for an array and its capacity, which becomes the number of elements, and
/// returns the library's result. @p entries names the elements in messages.
template <class Record, class Ask>
std::vector<Record> fetchList(Ask ask, const char *entries = "stations")
{
    uint32_t capacity = kInitialEntries;
    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
        // Zeroed for each attempt: the registry lists count with the previous contents of an element.
        std::vector<Record> list(capacity);
        const Result result = ask(list.data(), &capacity);
        if (result.code != KVO_HWS_TOO_SMALL) {
            require(result);
            list.resize(capacity);
            return list;
        }
        if (capacity > kMaxEntries) {
            throw Failure(result.code, "the service reports " + std::to_string(capacity) + " " + entries +
                                           "; kvoctl accepts at most " + std::to_string(kMaxEntries));
        }
    }
    throw Failure(KVO_HWS_TOO_SMALL, "the list grew with each request");
}

}  // namespace kvoctl
