// A process that has used up its descriptors.
#pragma once

#include <sys/resource.h>

namespace support {

/// No descriptor can be opened for a scope. Short: what watches memory for a sanitizer needs some too.
class NoDescriptors {
public:
    NoDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none{0, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    NoDescriptors(const NoDescriptors &) = delete;
    NoDescriptors &operator=(const NoDescriptors &) = delete;
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};

}  // namespace support
