// Reads plant files, which describe a plant in TOML.
#pragma once

#include "kvosim/plant/plant.h"
#include "kvosim/plant_file/plant_file_error.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string_view>

namespace kvosim {

/// The plant that is served if no plant file is given: three stations.
extern const std::string_view kBuiltInPlant;

/// Called often while a plant is read, with the number of stations read so far and the total. Both are 0 until the total is
/// known.
using Progress = std::function<void(std::size_t done, std::size_t total)>;
inline const Progress kNoProgress = [](std::size_t /*done*/, std::size_t /*total*/) {};

/// Throws PlantFileError.
Plant loadPlant(const std::filesystem::path &file, const Progress &progress = kNoProgress);
Plant parsePlant(std::string_view text, std::string_view fileName, const Progress &progress = kNoProgress);

}  // namespace kvosim
