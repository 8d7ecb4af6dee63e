// Owner of a file descriptor.
#pragma once

#include <cerrno>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tools {

class Descriptor {
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int fd) noexcept : fd_(fd) {}
    /// @p fd is the return value of the function @p call. If that is an error, throws std::system_error that names @p call.
    Descriptor(int fd, const char *call) : fd_(fd)
    {
        if (!valid()) {
            throw std::system_error(errno, std::generic_category(), call);
        }
    }
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor()
    {
        if (valid()) {
            close(fd_);
        }
    }

    [[nodiscard]] bool valid() const noexcept { return fd_ >= 0; }
    [[nodiscard]] int get() const noexcept { return fd_; }

private:
    int fd_ = -1;
};

}  // namespace tools
