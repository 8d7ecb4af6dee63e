// Simulates running out of memory.
#pragma once

namespace support {

/// Makes every malloc, calloc and realloc of the calling thread fail for a scope, except the first @p granted.
class FailingAllocations {
public:
    explicit FailingAllocations(int granted = 0);
    FailingAllocations(const FailingAllocations &) = delete;
    FailingAllocations &operator=(const FailingAllocations &) = delete;
    ~FailingAllocations();

    /// Null if allocations can be made to fail, otherwise the reason why not.
    static const char *unavailable();
};

/// Lets allocations succeed again in an inner scope: test tools need memory while the library gets none.
class WorkingAllocations {
public:
    WorkingAllocations();
    WorkingAllocations(const WorkingAllocations &) = delete;
    WorkingAllocations &operator=(const WorkingAllocations &) = delete;
    ~WorkingAllocations();

private:
    bool before_;
};

}  // namespace support
