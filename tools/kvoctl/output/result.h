// Exit statuses for scripts and hints for users, from the library's results.
#pragma once

#include "common/station/result.h"

#include <stdexcept>
#include <string>

namespace kvoctl {

/// Exit statuses. Scripts rely on them (docs/kvoctl.md): their meanings never change.
enum class Exit : int {
    done = 0,        ///< done, or "yes"
    no = 1,          ///< the service's "no"
    usage = 2,       ///< the command line is wrong; no request was sent
    noService = 3,   ///< no connection to the service
    failed = 4,      ///< the service refused or failed
    ownFailure = 5,  ///< kvoctl itself: its output cannot be written, or no memory
    // 10 to 20 are the faults that "kvoctl doctor" finds (finding.h).
};

/// A wrong command line.
struct UsageError : std::runtime_error {
    using runtime_error::runtime_error;
};

using tools::Failure;
using tools::meaningOf;
using tools::Request;
using tools::require;
using tools::Result;

Exit exitOf(const Failure &failure) noexcept;

/// Advice for the user, or an empty text if none applies.
std::string hintOf(const Failure &failure);

}  // namespace kvoctl
