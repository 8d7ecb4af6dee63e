// A pseudo terminal for the program under test; the test reads its screen.
#pragma once

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace support {

class Terminal {
public:
    explicit Terminal(unsigned short columns = 80) : screen_(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
    {
        if (screen_ < 0 || grantpt(screen_) != 0 || unlockpt(screen_) != 0) {
            throw std::runtime_error("no pseudo terminal");
        }
        path_ = ptsname(screen_);
        descriptor_ = open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        const winsize size{.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
        if (descriptor_ < 0 || ioctl(descriptor_, TIOCSWINSZ, &size) != 0) {
            throw std::runtime_error("the pseudo terminal " + path_ + " cannot be opened");
        }
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;
    ~Terminal()
    {
        close(descriptor_);
        close(screen_);
    }

    /// The end that programs write to.
    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
    [[nodiscard]] const std::string &path() const noexcept { return path_; }

    /// All bytes written since the last call.
    [[nodiscard]] std::string shown() const
    {
        std::string text;
        std::array<char, 4096> part{};
        for (ssize_t count = 0; (count = read(screen_, part.data(), part.size())) > 0;) {
            text.append(part.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

private:
    int screen_;
    std::string path_;
    int descriptor_ = -1;
};

}  // namespace support
