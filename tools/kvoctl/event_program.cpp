// Starts the program without a shell: what devices call themselves never becomes part of a command.
#include "event_program.h"

#include "display_text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace kvoctl {

namespace {

/// How a program is started: without input, and what it writes to its standard output goes to standard error, for standard
/// output carries nothing but the events.
class Start {
public:
    explicit Start(const sigset_t &signals)
    {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, STDERR_FILENO, STDOUT_FILENO);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &signals);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
    }
    Start(const Start &) = delete;
    Start &operator=(const Start &) = delete;
    ~Start()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }

    /// An error number, or 0.
    [[nodiscard]] int run(const std::string &program, const std::vector<std::string> &variables, pid_t &process) const
    {
        std::vector<char *> environment;
        for (const std::string &variable : variables) {
            environment.push_back(const_cast<char *>(variable.c_str()));
        }
        environment.push_back(nullptr);
        char *const arguments[] = {const_cast<char *>(program.c_str()), nullptr};
        return posix_spawnp(&process, program.c_str(), &actions_, &attributes_, arguments, environment.data());
    }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

/// Our own environment with those of the event; without what another watch may have put there, which started this one.
std::vector<std::string> environmentFor(const UsbEvent &event)
{
    std::vector<std::string> variables = environment(event);
    for (char **variable = environ; *variable != nullptr; ++variable) {
        if (!std::string_view(*variable).starts_with(kUsbEnvironment)) {
            variables.emplace_back(*variable);
        }
    }
    return variables;
}

/// What is wrong with how @p process ends; empty for nothing.
std::string awaitEnd(pid_t process)
{
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) {
            return std::string("can not be waited for: ") + std::strerror(errno);
        }
    }
    if (WIFSIGNALED(status)) {
        return "was ended by signal " + std::to_string(WTERMSIG(status));
    }
    return WEXITSTATUS(status) == 0 ? "" : "ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

EventProgram::EventProgram(std::string program, const sigset_t &signals, std::string complaint)
    : program_(std::move(program)), signals_(signals), complaint_(std::move(complaint))
{
    // Where our own parent ignores it, so do we, and a program's status is lost.
    std::signal(SIGCHLD, SIG_DFL);
}

bool EventProgram::run(const UsbEvent &event) const
{
    const std::string fault = runAndWait(event);
    if (!fault.empty()) {
        const std::string sentence = program_ + " " + fault + " (event \"" + event.word + "\")";
        std::fprintf(stderr, "%s: %s\n", complaint_.c_str(), displayText(sentence).text.c_str());
    }
    return fault.empty();
}

std::string EventProgram::runAndWait(const UsbEvent &event) const
{
    pid_t process = -1;
    const int error = Start(signals_).run(program_, environmentFor(event), process);
    return error == 0 ? awaitEnd(process) : std::string("can not be run: ") + std::strerror(error);
}

}  // namespace kvoctl
