// What the library's functions return, and what that means in words for people.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace tools {

/// What a function of the library returned.
struct Result {
    int32_t code;
    const char *function = nullptr;  ///< its name; null for the general meaning of the code
};

/// A function of the library with its name, by which its results are explained; calling it gives both.
template <class... Parameters>
struct Request {
    const char *name;
    int32_t (*function)(Parameters...);

    Result operator()(Parameters... arguments) const { return {function(arguments...), name}; }
};

template <class... Parameters>
Request(const char *, int32_t (*)(Parameters...)) -> Request<Parameters...>;

/// The Request of a function of the library, which is named once only.
#define KVO_REQUEST(function) (tools::Request{#function, function})

/// A request that did not end with 1, with its result and what that means.
class Failure : public std::runtime_error {
public:
    Failure(int32_t result, const std::string &meaning) : runtime_error(meaning), result_(result) {}

    [[nodiscard]] int32_t result() const noexcept { return result_; }

private:
    int32_t result_;
};

/// What @p result means.
std::string words(const Result &result);

/// Whether @p code is an answer about the station rather than the failure of a request: so are 1, 0 and those of @p states.
bool isState(int32_t code, const std::vector<int32_t> &states);

/// Throws Failure unless @p result is 1.
void require(const Result &result);

/// The result of a request that does not distinguish a missing service from a refusal: another request, which does, follows it.
Result withMissingService(const Result &result);

}  // namespace tools
