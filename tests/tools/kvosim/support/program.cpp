#include "tools/kvosim/support/program.h"

#include "support/eventually.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace kvosim_test {

namespace {

/// Makes unshare() fail in this process from here on.
void forbidNamespaces()
{
    std::array filter = {
        sock_filter{BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        sock_filter{BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_unshare},
        sock_filter{BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | EPERM},
        sock_filter{BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    const sock_fprog program{.len = filter.size(), .filter = filter.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        _exit(99);
    }
}

void redirect(int fd, const std::filesystem::path &file)
{
    const int target = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
    dup2(target, fd);
    close(target);
}

}  // namespace

Program::Program(const std::vector<std::string> &command, bool withoutNamespaces)
{
    const std::filesystem::path temporary = directory_ / "tmp";
    std::filesystem::create_directory(temporary);
    std::vector<char *> arguments;
    for (const std::string &argument : command) {
        arguments.push_back(const_cast<char *>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    process_ = fork();
    if (process_ != 0) {
        return;
    }
    redirect(STDOUT_FILENO, directory_ / "out");
    redirect(STDERR_FILENO, directory_ / "err");
    setenv("TMPDIR", temporary.c_str(), 1);
    if (withoutNamespaces) {
        forbidNamespaces();
    }
    execvp(arguments[0], arguments.data());
    _exit(98);
}

Program::~Program()
{
    if (process_ > 0) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
}

void Program::signal(int number) const { kill(process_, number); }

int Program::wait()
{
    int status = 0;
    const auto until = std::chrono::steady_clock::now() + 20s;
    while (waitpid(process_, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > until) {
            kill(process_, SIGKILL);
        }
        std::this_thread::sleep_for(2ms);
    }
    process_ = -1;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

bool Program::hasWritten(const std::string &text) const
{
    return support::eventually([&] { return out().find(text) != std::string::npos; });
}

std::vector<std::string> Program::temporaryFiles() const
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(directory_ / "tmp")) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

}  // namespace kvosim_test
