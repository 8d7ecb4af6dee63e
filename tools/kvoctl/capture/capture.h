// Reads the plant from the service and describes it as a plant file, which kvosim can serve. Changes nothing at the service.
#pragma once

#include "kvoctl/capture/not_read.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kvoctl {

struct CaptureProgress {
    std::size_t stations;  ///< that have been read
    std::size_t all;       ///< 0 until the list of stations has been read
};

/// Requests per second, unless the caller wants another rate.
inline constexpr unsigned kCaptureRate = 100;

struct CaptureOptions {
    std::optional<unsigned> rate = kCaptureRate;                      ///< requests per second; no limit without a value
    std::function<void(const CaptureProgress &progress)> progress{};  ///< called before each request; may be empty
};

struct Captured {
    std::string text;  ///< a valid plant file, whatever could not be read
    std::size_t stations = 0;
    std::vector<NotRead> notRead{};
    /// Why the service was no longer asked, such as "the service stopped answering at getVersion"; empty if it was asked for
    /// everything.
    std::string stopped{};
};

/// Throws tools::Failure if the service does not answer the first request.
Captured capture(const CaptureOptions &options = {});

}  // namespace kvoctl
