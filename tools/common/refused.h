// Exceptions for requests to a running simulator that it does not carry out.
#pragma once

#include <stdexcept>

namespace tools {

/// The simulator refused a request. The text says why.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The request was valid, but could not be carried out now: the other side is not connected or does not answer.
struct CouldNot : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace tools
