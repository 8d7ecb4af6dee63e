// What a plant file is refused with.
#pragma once

#include <stdexcept>

namespace kvosim {

/// A plant file that cannot be used. The text names the file, the line and the key, says what is wrong and what is right.
struct PlantFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace kvosim
