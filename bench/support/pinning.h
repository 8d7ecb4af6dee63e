// Pins everything that is compared to one core, so the scheduler's choice of cores does not affect the figures.
#pragma once

namespace bench {

/// Pins the calling process, and the processes and threads that it will start, to one core. Returns the number of the core.
/// Throws std::system_error if the kernel refuses.
int pinToOneCore();

}  // namespace bench
