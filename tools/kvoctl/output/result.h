// What a library's result means: in words for people, as an exit status for scripts.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kvoctl {

/// Exit statuses. They are a contract with scripts (docs/kvoctl.md): none ever changes its meaning.
enum class Exit : int {
    done = 0,        ///< done, or "yes"
    no = 1,          ///< the service's "no"
    usage = 2,       ///< the command line is wrong; nothing was asked
    noService = 3,   ///< no connection to the service
    failed = 4,      ///< the service refused or failed
    ownFailure = 5,  ///< kvoctl itself: its output can not be written, or no memory
    // 10 to 19 are the faults that "kvoctl doctor" finds (finding.h).
};

/// A wrong command line.
struct UsageError : std::runtime_error {
    using runtime_error::runtime_error;
};

/// A request that did not end with 1, with its result and what that means.
class Failure : public std::runtime_error {
public:
    Failure(int32_t result, const std::string &meaning) : runtime_error(meaning), result_(result) {}

    [[nodiscard]] int32_t result() const noexcept { return result_; }
    [[nodiscard]] Exit exit() const noexcept;
    /// What the user can do about it; empty where nothing general can be said.
    [[nodiscard]] std::string hint() const;

private:
    int32_t result_;
};

/// What a result means for one request, where that is more than the general words say.
struct Meaning {
    int32_t result;
    std::string words;
};

/// The words for @p result: of the first of @p own that fits, else the general ones.
std::string words(int32_t result, const std::vector<Meaning> &own);

/// Throws Failure unless @p result is 1.
void require(int32_t result, const std::vector<Meaning> &own = {});

/// The result of a request that tells a missing service like a refusal; a question that does not comes after.
int32_t withMissingService(int32_t result);

}  // namespace kvoctl
