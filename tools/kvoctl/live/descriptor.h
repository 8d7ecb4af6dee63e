// A descriptor that closes itself.
#pragma once

#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace kvoctl {

class Descriptor {
public:
    /// @p fd  what a call gave; throws std::system_error about @p what where that is none
    Descriptor(int fd, const char *what) : fd_(fd)
    {
        if (fd < 0) {
            throw std::system_error(errno, std::generic_category(), what);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { close(fd_); }

    [[nodiscard]] int get() const noexcept { return fd_; }

private:
    int fd_;
};

}  // namespace kvoctl
