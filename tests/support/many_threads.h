// Room for many threads at a time. The stack of each takes 8 MB of a program's addresses, and 500 of them all that 32 bits have.
#pragma once

#include <pthread.h>

namespace support {

/// Gives every thread that starts from here on, the library's too, a stack of which thousands fit into 32 bits.
inline void makeRoomForManyThreads()
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
