// Checks the panel's own part of the installation: its two libraries and the configuration file.
#pragma once

#include "common/finding.h"

namespace tools {

/// Reports which file the loader uses for the library @p name.
Finding examineLibrary(const std::string &name);

/// Reports whether the configuration file is readable. Requests work without one.
Finding examineConfiguration();

}  // namespace tools
