#include "support/child_process.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace bench {

ChildProcess::ChildProcess(const std::function<void()> &work) : process_(fork())
{
    if (process_ < 0) {
        throw std::system_error(errno, std::generic_category(), "start a process");
    }
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        try {
            work();
        } catch (const std::exception &error) {
            std::fprintf(stderr, "kvo_bench: %s\n", error.what());
        }
        _exit(1);
    }
}

ChildProcess::~ChildProcess()
{
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

}  // namespace bench
