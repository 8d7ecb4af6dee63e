// What the platform's configuration reader allocates and forgets: it can not know whether a text that it replaces is still
// held.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace support {

/// Allocations of a scope count as no leak.
class KeptByThePlatform {
public:
#if defined(__SANITIZE_ADDRESS__)
    KeptByThePlatform() { __lsan_disable(); }
    ~KeptByThePlatform() { __lsan_enable(); }
#else
    KeptByThePlatform() {}
    ~KeptByThePlatform() {}
#endif
    KeptByThePlatform(const KeptByThePlatform &) = delete;
    KeptByThePlatform &operator=(const KeptByThePlatform &) = delete;
};

}  // namespace support
