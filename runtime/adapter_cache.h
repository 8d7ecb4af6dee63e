// The platform's adapter cache, which all threads share.
#pragma once

#include <cstdint>

#include <kvo_hws/platform.h>

#include "runtime/owners.h"

namespace kvo_hws {

/// Selects an adapter and reads its values into the cache. Until the end of the scope no other thread can select another one.
class AdapterCache {
public:
    /// @param interface  as the platform returns it; may be null
    explicit AdapterCache(const char *interface) noexcept
    {
        setAdapterInterfaceCache(interface);
        found_ = getAdapterValuesDirect(1) == 0;
    }

    [[nodiscard]] bool found() const noexcept { return found_; }
    [[nodiscard]] uint32_t broadcast() const noexcept { return getAdapterBroadcastCache(); }
    void readMac(uint8_t (&mac)[6]) const noexcept { getAdapterMacCache(mac); }

private:
    static inline pthread_mutex_t inUse_ = PTHREAD_MUTEX_INITIALIZER;

    NoCancellation wholeUse_;
    Lock lock_{inUse_};
    bool found_ = false;
};

}  // namespace kvo_hws
