// How a request to a running simulator ends that can not be carried out.
#pragma once

#include <stdexcept>

namespace tools {

/// The simulator has refused a request. The text says why.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The request was in order, but could not be done now: somebody else is not there, or does not answer.
struct CouldNot : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace tools
