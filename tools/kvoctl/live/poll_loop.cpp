// Waits for everything with one poll, so that a blocked source does not delay the others.
#include "kvoctl/live/poll_loop.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace kvoctl {

namespace {
constexpr pollfd kNothing{.fd = -1, .events = 0, .revents = 0};
}

bool PollLoop::wait(std::span<pollfd> sources, std::optional<std::chrono::milliseconds> time)
{
    std::vector<pollfd> all{pollfd{.fd = stopped_ ? -1 : signals_.descriptor(), .events = POLLIN, .revents = 0},
                            writes_ ? output_.pollRequest() : kNothing};
    all.insert(all.end(), sources.begin(), sources.end());
    if (poll(all.data(), all.size(), time ? static_cast<int>(std::max<int64_t>(time->count(), 0)) : -1) <= 0) {
        return false;
    }
    stopped_ = stopped_ || all[0].revents != 0;
    output_.handle(all[1]);
    std::copy(all.begin() + 2, all.end(), sources.begin());
    return std::any_of(sources.begin(), sources.end(), [](const pollfd &source) { return source.revents != 0; });
}

}  // namespace kvoctl
