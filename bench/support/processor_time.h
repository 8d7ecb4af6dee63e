// The processor time of processes. Other programs on the machine hardly affect it.
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
    expect(clock_gettime(clock, &time) == 0, "cannot read the processor time");
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

inline Seconds processorTimeOf(const ChildProcess &process)
{
    clockid_t clock{};
    expect(clock_getcpuclockid(process.id(), &clock) == 0, "a child process has ended");
    return processorTimeOf(clock);
}

}  // namespace bench
