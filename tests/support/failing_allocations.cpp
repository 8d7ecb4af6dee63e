#include "support/failing_allocations.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KVO_SANITIZED_ALLOCATOR 1
#else
#define KVO_SANITIZED_ALLOCATOR 0
#endif

namespace support {

namespace {
thread_local bool failing = false;
thread_local int stillGranted = 0;

#if !KVO_SANITIZED_ALLOCATOR
/// Whether the current allocation fails.
bool fails() noexcept { return failing && stillGranted-- <= 0; }
#endif

}  // namespace

FailingAllocations::FailingAllocations(int granted)
{
    // Exit handlers may need memory if the library ends the process: writing the coverage counts does.
    [[maybe_unused]] static const int atExit = std::atexit([] { failing = false; });
    stillGranted = granted;
    failing = true;
}
FailingAllocations::~FailingAllocations() { failing = false; }

WorkingAllocations::WorkingAllocations() : before_(failing) { failing = false; }
WorkingAllocations::~WorkingAllocations() { failing = before_; }

const char *FailingAllocations::unavailable()
{
    return KVO_SANITIZED_ALLOCATOR != 0 ? "the sanitizer owns the allocator, so no allocation can be made to fail" : nullptr;
}

}  // namespace support

#if !KVO_SANITIZED_ALLOCATOR
// Replaces the C library's functions: the dynamic linker binds the library's calls to the program's definitions.
extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);

void *malloc(std::size_t size)
{
    if (support::fails()) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size)
{
    if (support::fails()) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_calloc(count, size);
}

void *realloc(void *block, std::size_t size)
{
    if (support::fails()) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_realloc(block, size);
}
}
#endif
