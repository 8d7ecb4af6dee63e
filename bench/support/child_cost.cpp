#include "support/child_cost.h"

#include "support/expect.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace bench {

ChildCost costOf(const std::function<void()> &work)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const pid_t child = fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "start a process");
    }
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        try {
            work();
            _exit(0);
        } catch (const std::exception &error) {
            std::fprintf(stderr, "kvo_bench: %s\n", error.what());
        }
        _exit(1);
    }
    int status = 0;
    rusage usage{};
    expect(wait4(child, &status, 0, &usage) == child && status == 0, "a measured process failed");
    const std::chrono::duration<double> time = Clock::now() - start;
    return {time.count(), static_cast<uint64_t>(usage.ru_maxrss)};
}

ChildCost costOfProgram(const std::vector<std::string> &command)
{
    std::vector<char *> arguments;
    for (const std::string &argument : command) {
        arguments.push_back(const_cast<char *>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    return costOf([&] {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        dup2(nowhere, STDERR_FILENO);
        execv(arguments[0], arguments.data());
        throw std::system_error(errno, std::generic_category(), command[0]);
    });
}

}  // namespace bench
