// Results of the library's functions and their meaning as text for users.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace tools {

/// The return value of a function of the library.
struct Result {
    int32_t code;
    const char *function = nullptr;  ///< the function's name; null for the general meaning of the code
};

/// A function of the library with its name: the meaning of a result depends on the function. A call returns the result with the
/// name.
template <class... Parameters>
struct Request {
    const char *name;
    int32_t (*function)(Parameters...);

    Result operator()(Parameters... arguments) const { return {function(arguments...), name}; }
};

template <class... Parameters>
Request(const char *, int32_t (*)(Parameters...)) -> Request<Parameters...>;

/// Makes a Request from the name of a function of the library.
#define KVO_REQUEST(function) (tools::Request{#function, function})

/// A request did not return 1. The text is the meaning of the result.
class Failure : public std::runtime_error {
public:
    Failure(int32_t result, const std::string &meaning) : runtime_error(meaning), result_(result) {}

    [[nodiscard]] int32_t result() const noexcept { return result_; }

private:
    int32_t result_;
};

std::string meaningOf(const Result &result);

/// Whether @p code describes the station rather than a failed request: 1, 0 and the codes of @p states do.
bool isState(int32_t code, const std::vector<int32_t> &states);

/// Throws Failure unless @p result is 1.
void require(const Result &result);

/// For a request whose result -1 means either a refusal or a missing service. Finds out with another request, and returns -1 or
/// -2.
Result distinguishMissingService(const Result &result);

}  // namespace tools
