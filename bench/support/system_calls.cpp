#include "support/system_calls.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace bench {

namespace {

// A system call that no operation makes. It marks the start and the end of counting for the tracer.
constexpr long kMark = SYS_getppid;

void check(bool good, const char *step)
{
    if (!good) {
        throw std::system_error(errno, std::generic_category(), step);
    }
}

std::string nameOf(uint64_t number)
{
    switch (number) {
    case SYS_socket: return "socket";
    case SYS_setsockopt: return "setsockopt";
    case SYS_connect: return "connect";
    case SYS_write: return "write";
    case SYS_writev: return "writev";
    case SYS_sendto: return "sendto";
    case SYS_sendmsg: return "sendmsg";
#ifdef SYS_poll
    case SYS_poll: return "poll";
#endif
    case SYS_ppoll: return "ppoll";
    case SYS_recvfrom: return "recvfrom";
    case SYS_close: return "close";
    case SYS_futex: return "futex";
    default: return "call " + std::to_string(number);
    }
}

[[noreturn]] void runTraced(const std::function<void()> &operation)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        _exit(1);
    }
    raise(SIGSTOP);
    operation();
    syscall(kMark);
    operation();
    syscall(kMark);
    _exit(0);
}

/// Lets the child run to the next entry or exit of a system call. Returns false if the child has ended.
bool runToSystemCall(pid_t child)
{
    check(ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0, "trace a system call");
    int status = 0;
    check(waitpid(child, &status, 0) == child, "wait for the traced child");
    return WIFSTOPPED(status);
}

std::vector<std::string> record(pid_t child)
{
    std::vector<std::string> calls;
    int marks = 0;
    while (runToSystemCall(child)) {
        __ptrace_syscall_info info{};
        check(ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) > 0, "read a traced system call");
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) {
            continue;
        }
        if (info.entry.nr == static_cast<uint64_t>(kMark)) {
            ++marks;
        } else if (marks == 1) {
            calls.push_back(nameOf(info.entry.nr));
        }
    }
    return calls;
}

}  // namespace

std::vector<std::string> systemCallsOf(const std::function<void()> &operation)
{
    const pid_t child = fork();
    check(child >= 0, "start the traced child");
    if (child == 0) {
        runTraced(operation);
    }
    int status = 0;
    check(waitpid(child, &status, 0) == child, "wait for the traced child");
    if (!WIFSTOPPED(status)) {
        throw std::system_error(EPERM, std::generic_category(), "trace a child");
    }
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD);
    return record(child);
}

}  // namespace bench
