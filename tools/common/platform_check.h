// Checks the panel's own part of the installation: its two libraries and the configuration file.
#pragma once

#include "common/finding.h"

namespace tools {

/// Which file the loader uses for the library @p name.
Finding examineLibrary(const std::string &name);

/// Whether the configuration file is readable. The service works without one.
Finding examineConfiguration();

}  // namespace tools
