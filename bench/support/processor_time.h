// How long processes have been running on a processor, which other programs on the machine hardly disturb.
#pragma once

#include "support/child_process.h"
#include "support/expect.h"

#include <chrono>
#include <ctime>

namespace bench {

using Seconds = std::chrono::duration<double>;

inline Seconds processorTimeOf(clockid_t clock)
{
    timespec time{};
    expect(clock_gettime(clock, &time) == 0, "no clock of processor time");
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

inline Seconds processorTimeOf(const ChildProcess &process)
{
    clockid_t clock{};
    expect(clock_getcpuclockid(process.id(), &clock) == 0, "a child process is gone");
    return processorTimeOf(clock);
}

}  // namespace bench
