// RAII classes: each resource is owned by an object whose destructor releases it.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <unistd.h>
#include <utility>

#include <kvo_hws/runtime.h>

namespace kvo_hws {

/// A file descriptor, closed at the end of its scope.
class Descriptor {
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int fd) noexcept : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() { close(); }

    [[nodiscard]] int get() const noexcept { return fd_; }
    [[nodiscard]] bool valid() const noexcept { return fd_ >= 0; }

    /// Gives up ownership and returns the descriptor.
    int release() noexcept { return std::exchange(fd_, -1); }

    /// Closes now. Preserves errno, so that the caller can still report the failure that led here.
    void close() noexcept
    {
        if (fd_ >= 0) {
            const int error = errno;
            ::close(std::exchange(fd_, -1));
            errno = error;
        }
    }

private:
    int fd_ = -1;
};

struct FreeHeap {
    void operator()(void *block) const noexcept { std::free(block); }
};

/// A text that was allocated with malloc, for example by a function of the C interface.
using HeapText = std::unique_ptr<char, FreeHeap>;

/// Disables cancellation of the thread for a scope. A cancelled thread would leave locks locked, and could not unwind through
/// noexcept functions.
class NoCancellation {
public:
    NoCancellation() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    NoCancellation(const NoCancellation &) = delete;
    NoCancellation &operator=(const NoCancellation &) = delete;
    ~NoCancellation() { pthread_setcancelstate(before_, nullptr); }

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

/// Locks a critical section until the end of the scope.
class Lock {
public:
    explicit Lock(pthread_mutex_t &section) noexcept : section_(section) { kvo_hws_EnterCriticalSection(&section_); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
    ~Lock() { kvo_hws_LeaveCriticalSection(&section_); }

private:
    pthread_mutex_t &section_;
};

}  // namespace kvo_hws
