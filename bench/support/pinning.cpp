#include "support/pinning.h"

#include <cerrno>
#include <sched.h>
#include <system_error>

namespace bench {

namespace {

void check(int result, const char *step)
{
    if (result != 0) {
        throw std::system_error(errno, std::generic_category(), step);
    }
}

}  // namespace

int pinToOneCore()
{
    cpu_set_t allowed;
    check(sched_getaffinity(0, sizeof allowed, &allowed), "sched_getaffinity");
    // The last core: the first one usually serves the interrupts.
    int core = CPU_SETSIZE - 1;
    while (core > 0 && !CPU_ISSET(core, &allowed)) {
        --core;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(core, &one);
    check(sched_setaffinity(0, sizeof one, &one), "sched_setaffinity");
    return core;
}

}  // namespace bench
