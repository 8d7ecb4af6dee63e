// Plant files: the TOML text that describes a plant, read into its state.
#pragma once

#include "kvosim/plant/plant.h"
#include "kvosim/plant_file/plant_file_error.h"

#include <filesystem>
#include <string_view>

namespace kvosim {

/// The plant that is served where none is given: three stations.
extern const std::string_view kBuiltInPlant;

/// Throws PlantFileError.
Plant loadPlant(const std::filesystem::path &file);
Plant parsePlant(std::string_view text, std::string_view fileName);

}  // namespace kvosim
