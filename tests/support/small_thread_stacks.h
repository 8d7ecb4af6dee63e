// Small stacks, so that many threads fit: a default stack takes 8 MB of address space, and 500 of them use up 32 bits.
#pragma once

#include <pthread.h>

namespace support {

/// Gives every thread started from now on, including the library's, a stack small enough for thousands in 32 bits.
inline void useSmallThreadStacks()
{
    if (sizeof(void *) == 8) {
        return;
    }
    constexpr std::size_t kStack = 256 * 1024;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStack);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}

}  // namespace support
