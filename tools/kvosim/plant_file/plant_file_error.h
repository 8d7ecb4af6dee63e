// The error for an invalid plant file.
#pragma once

#include <stdexcept>

namespace kvosim {

/// The text names the file, the line and the key; it says what is wrong and what is valid.
struct PlantFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace kvosim
