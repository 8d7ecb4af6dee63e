#include "runtime/clock.h"

#include "runtime/owners.h"

#include <cerrno>
#include <ctime>

namespace kvo_hws {

int pause(std::chrono::milliseconds length) noexcept
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(length);
    const NoCancellation wholePause;
    timespec left{.tv_sec = static_cast<time_t>(seconds.count()),
                  .tv_nsec = static_cast<long>(std::chrono::nanoseconds(length - seconds).count())};
    int error = 0;
    do {
        error = clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left);
    } while (error == EINTR);
    return error;
}

}  // namespace kvo_hws
