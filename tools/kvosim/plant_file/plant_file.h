// Plant files: the TOML text that describes a plant, read into its state.
#pragma once

#include "kvosim/plant/plant.h"

#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace kvosim {

/// A plant file that can not be used. The text names the file, the line and the key, says what is wrong and what is right.
struct PlantFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The plant that is served where none is given: three stations.
extern const std::string_view kBuiltInPlant;

/// Throws PlantFileError.
Plant loadPlant(const std::filesystem::path &file);
Plant parsePlant(std::string_view text, std::string_view fileName);

}  // namespace kvosim
