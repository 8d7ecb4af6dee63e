// The open descriptors, the threads and the resident memory of a process.
#pragma once

#include "support/child_process.h"

#include <cstdint>

namespace bench {

struct ResourceUsage {
    uint64_t descriptors;
    uint64_t threads;
    uint64_t residentKilobytes;
};

ResourceUsage resourceUsageOf(const ChildProcess &process);

}  // namespace bench
