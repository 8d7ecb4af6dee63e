// Manages the process of the command and all its descendants.
#include "common/supervised_command.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>

namespace tools {

namespace {

constexpr int kNotPrepared = 125;
constexpr int kNotExecutable = 126;
constexpr int kNoSuchProgram = 127;
constexpr int kSignalled = 128;
constexpr std::chrono::milliseconds kTerminationTimeout{1'000};
constexpr std::chrono::milliseconds kPollInterval{10};

/// Whether the file of a command exists, executable or not.
bool exists(const std::string &command)
{
    if (command.find('/') != std::string::npos) {
        return access(command.c_str(), F_OK) == 0;
    }
    const char *path = std::getenv("PATH");
    std::istringstream directories(path == nullptr ? "" : path);
    for (std::string directory; std::getline(directories, directory, ':');) {
        if (access(directory.append("/").append(command).c_str(), F_OK) == 0) {
            return true;
        }
    }
    return false;
}

void prepare(const SupervisedCommand::Options &options)
{
    if (!options.prepare) {
        return;
    }
    try {
        options.prepare();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s: %s\n", options.messagePrefix.c_str(), error.what());
        _exit(kNotPrepared);
    }
}

[[noreturn]] void execute(const std::vector<std::string> &command, const std::string &messagePrefix)
{
    std::vector<char *> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string &argument : command) {
        arguments.push_back(const_cast<char *>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    int error = errno;
    if (error == EACCES && !exists(command[0])) {
        error = ENOENT;  // execvp reports EACCES for a directory of PATH that is not searchable
    }
    std::fprintf(stderr, "%s: %s: %s\n", messagePrefix.c_str(), arguments[0], std::strerror(error));
    _exit(error == ENOENT ? kNoSuchProgram : kNotExecutable);
}

pid_t start(const std::vector<std::string> &command, const sigset_t &signals, const SupervisedCommand::Options &options)
{
    // Orphans of the command become children of this process, which can then end them.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child > 0) {
        return child;
    }
    // The command ends when this process dies: without the service it cannot work.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) {
        _exit(kSignalled + SIGTERM);
    }
    prepare(options);
    pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    execute(command, options.messagePrefix);
}

std::vector<pid_t> children()
{
    std::ifstream list("/proc/thread-self/children");
    std::vector<pid_t> found;
    for (pid_t child = 0; list >> child;) {
        found.push_back(child);
    }
    return found;
}

void signalChildren(int signal)
{
    for (const pid_t child : children()) {
        kill(child, signal);
    }
}

/// Reaps the children that have ended. Returns whether children are left.
bool childrenLeft()
{
    pid_t ended = 0;
    do {
        ended = waitpid(-1, nullptr, WNOHANG);
    } while (ended > 0);
    return ended == 0;
}

}  // namespace

SupervisedCommand::SupervisedCommand(EventLoop &loop, const std::vector<std::string> &command, std::function<void()> ended,
                                     const Options &options)
    : ended_(std::move(ended)), signals_(loop, {SIGINT, SIGTERM, SIGCHLD}, [this](const auto &signal) { react(signal); }),
      process_(start(command, signals_.previousMask(), options))
{
}

SupervisedCommand::~SupervisedCommand()
{
    if (!childrenLeft()) {
        return;
    }
    signalChildren(SIGTERM);
    const auto until = Clock::now() + kTerminationTimeout;
    while (childrenLeft() && Clock::now() < until) {
        std::this_thread::sleep_for(kPollInterval);
    }
    // Repeat, because a killed process may leave its own children running.
    while (childrenLeft()) {
        signalChildren(SIGKILL);
        std::this_thread::sleep_for(kPollInterval);
    }
}

void SupervisedCommand::react(const signalfd_siginfo &signal)
{
    if (signal.ssi_signo == SIGCHLD) {
        collectEnded();
        return;
    }
    // Signals from the terminal (SI_KERNEL) reach the command directly.
    if (signal.ssi_code != SI_KERNEL) {
        this->signal(static_cast<int>(signal.ssi_signo));
    }
}

void SupervisedCommand::signal(int number) const noexcept
{
    if (!status_) {
        kill(process_, number);
    }
}

void SupervisedCommand::collectEnded()
{
    int status = 0;
    for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
        if (ended != process_) {
            continue;
        }
        status_ = WIFSIGNALED(status) ? kSignalled + WTERMSIG(status) : WEXITSTATUS(status);
        ended_();
    }
}

}  // namespace tools
