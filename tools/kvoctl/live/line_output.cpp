// Writes a line when poll has said that there is room for it.
#include "kvoctl/live/line_output.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <unistd.h>

namespace kvoctl {

pollfd LineOutput::wish() const noexcept
{
    return {.fd = hasEnded() ? -1 : STDOUT_FILENO, .events = static_cast<short>(lines_.empty() ? 0 : POLLOUT), .revents = 0};
}

void LineOutput::serve(const pollfd &happened)
{
    if ((happened.revents & (POLLERR | POLLHUP)) != 0) {
        error_ = EPIPE;
    } else if ((happened.revents & POLLNVAL) != 0) {
        error_ = EBADF;
    } else if ((happened.revents & POLLOUT) != 0) {
        writeFirst();
    }
}

/// A pipe that is ready takes PIPE_BUF bytes without waiting.
void LineOutput::writeFirst()
{
    std::string &line = lines_.front();
    const ssize_t written = ::write(STDOUT_FILENO, line.data(), std::min<std::size_t>(line.size(), PIPE_BUF));
    if (written < 0) {
        error_ = errno == EINTR || errno == EAGAIN ? 0 : errno;
        return;
    }
    line.erase(0, static_cast<std::size_t>(written));
    if (line.empty()) {
        lines_.pop_front();
    }
}

void LineOutput::drain()
{
    while (!lines_.empty() && !hasEnded()) {
        pollfd output = wish();
        if (poll(&output, 1, 0) <= 0) {
            return;
        }
        serve(output);
    }
}

void LineOutput::check() const
{
    if (hasEnded() && error_ != EPIPE) {
        throw std::runtime_error(std::string("can not write to standard output: ") + std::strerror(error_));
    }
}

}  // namespace kvoctl
