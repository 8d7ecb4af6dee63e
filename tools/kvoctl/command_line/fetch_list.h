// The lists of stations and clients, asked for until all of them have come.
#pragma once

#include "kvoctl/output/result.h"

#include <kvo_hws/requests.h>
#include <kvo_hws/result.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kvoctl {

/// As many fit before the service has told how many there are; most plants are smaller.
inline constexpr uint32_t kUsualEntries = 64;
/// A service that tells of more is taken to be mistaken rather than given the memory.
inline constexpr uint32_t kMostEntries = 1'000'000;
/// The list may grow between being told its size and asking again, but not for ever.
inline constexpr int kAttempts = 8;

/// @p ask is given an array and its in/out count, and returns the library's result; @p entries are what the list is of.
template <class Record, class Ask>
std::vector<Record> fetchList(Ask ask, const char *entries = "stations")
{
    uint32_t capacity = kUsualEntries;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // Zeroed for each attempt: the registry lists count by what an element held before.
        std::vector<Record> list(capacity);
        const Result result = ask(list.data(), &capacity);
        if (result.code != KVO_HWS_TOO_SMALL) {
            require(result);
            list.resize(capacity);
            return list;
        }
        if (capacity > kMostEntries) {
            throw Failure(result.code, "the service tells of " + std::to_string(capacity) + " " + entries +
                                           "; kvoctl takes at most " + std::to_string(kMostEntries));
        }
    }
    throw Failure(KVO_HWS_TOO_SMALL, "the list grew each time it was asked for");
}

}  // namespace kvoctl
