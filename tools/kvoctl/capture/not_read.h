// What a capture leaves out of a plant file.
#pragma once

#include <string>

namespace kvoctl {

/// A value that could not be read, or that a plant file cannot contain. The plant file has a comment in its place. (Values that a
/// station does not have, such as the calibration of a missing touch screen, have only a comment.)
struct NotRead {
    std::string station;  ///< its address; empty for a value of the service
    std::string key;      ///< of the plant file; empty for all keys that are read from the station
    std::string reason;
};

}  // namespace kvoctl
