// Everything that is compared runs on one and the same core, so that the scheduler's choices compare with nothing.
#pragma once

namespace bench {

/// Pins the calling process, and the processes and threads that it will start, to one core; returns which. Throws
/// std::system_error when the kernel refuses.
int pinToOneCore();

}  // namespace bench
