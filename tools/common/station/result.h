// What a library's result means in words for people.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace tools {

/// A request that did not end with 1, with its result and what that means.
class Failure : public std::runtime_error {
public:
    Failure(int32_t result, const std::string &meaning) : runtime_error(meaning), result_(result) {}

    [[nodiscard]] int32_t result() const noexcept { return result_; }

private:
    int32_t result_;
};

/// What a result means for one request, where that is more than the general words say.
struct Meaning {
    int32_t result;
    std::string words;
    bool isState = false;  ///< says what a station has or is; other results but the "no" say that the request failed
};

/// The words for @p result: of the first of @p own that fits, else the general ones.
std::string words(int32_t result, const std::vector<Meaning> &own);

/// Whether @p result is an answer about the station, by @p own, rather than the failure of a request.
bool isState(int32_t result, const std::vector<Meaning> &own);

/// Throws Failure unless @p result is 1.
void require(int32_t result, const std::vector<Meaning> &own = {});

/// The result of a request that does not distinguish a missing service from a refusal: another request, which does, follows it.
int32_t withMissingService(int32_t result);

}  // namespace tools
