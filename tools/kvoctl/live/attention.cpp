// One poll for everything, so that nothing that hangs keeps the rest waiting.
#include "kvoctl/live/attention.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace kvoctl {

namespace {
constexpr pollfd kNothing{.fd = -1, .events = 0, .revents = 0};
}

bool Attention::await(std::span<pollfd> sources, std::optional<std::chrono::milliseconds> time)
{
    std::vector<pollfd> all{pollfd{.fd = stopped_ ? -1 : signals_.descriptor(), .events = POLLIN, .revents = 0},
                            writes_ ? output_.wish() : kNothing};
    all.insert(all.end(), sources.begin(), sources.end());
    if (poll(all.data(), all.size(), time ? static_cast<int>(std::max<int64_t>(time->count(), 0)) : -1) <= 0) {
        return false;
    }
    stopped_ = stopped_ || all[0].revents != 0;
    output_.serve(all[1]);
    std::copy(all.begin() + 2, all.end(), sources.begin());
    return std::any_of(sources.begin(), sources.end(), [](const pollfd &source) { return source.revents != 0; });
}

}  // namespace kvoctl
