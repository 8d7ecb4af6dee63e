// Memory that runs out when a test says so.
#pragma once

namespace support {

/// Makes every malloc, calloc and realloc of the calling thread fail for a scope, but for the first @p granted.
class FailingAllocations {
public:
    explicit FailingAllocations(int granted = 0);
    FailingAllocations(const FailingAllocations &) = delete;
    FailingAllocations &operator=(const FailingAllocations &) = delete;
    ~FailingAllocations();

    /// Null where allocations can be made to fail, else the reason why not.
    static const char *unavailable();
};

/// Lets allocations succeed for a scope inside such a one: the tests' own tools need memory where the library has none.
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
