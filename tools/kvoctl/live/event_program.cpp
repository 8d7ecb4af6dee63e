// Starts the program without a shell, so that the names of devices never become part of a command.
#include "kvoctl/live/event_program.h"

#include "kvoctl/output/display_text.h"

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

/// Starts a program without input. Its standard output goes to standard error, because kvoctl's standard output contains only
/// events.
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

    /// Returns an error number, or 0.
    [[nodiscard]] int run(const std::string &program, const std::vector<std::string> &variables, pid_t &process) const
    {
        std::vector<char *> environment;
        environment.reserve(variables.size() + 1);
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

/// Our own environment and the event's variables, without event variables from a kvoctl that started this one.
std::vector<std::string> environmentFor(const std::string &prefix, const Event &event)
{
    std::vector<std::string> variables = environment(prefix, event);
    for (char **variable = environ; *variable != nullptr; ++variable) {
        if (!std::string_view(*variable).starts_with(prefix)) {
            variables.emplace_back(*variable);
        }
    }
    return variables;
}

/// How a program ended: its exit status, or what went wrong.
struct End {
    int status;
    std::string fault{};
};

End waitForEnd(pid_t process)
{
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) {
            return {-1, std::string("did not report its end: ") + std::strerror(errno)};
        }
    }
    if (WIFSIGNALED(status)) {
        return {-1, "was killed by signal " + std::to_string(WTERMSIG(status))};
    }
    return {WEXITSTATUS(status)};
}

/// The name of an event in messages.
std::string nameOf(const Event &event)
{
    return !event.word.empty() || event.fields.empty() ? event.word : event.fields.front().value.text();
}

}  // namespace

EventProgram::EventProgram(std::string program, std::string variablePrefix, const sigset_t &signalMask,
                           std::string messagePrefix)
    : program_(std::move(program)), variablePrefix_(std::move(variablePrefix)), signalMask_(signalMask),
      messagePrefix_(std::move(messagePrefix))
{
    // If our parent ignores SIGCHLD, so do we, and the status of a program would be lost.
    std::signal(SIGCHLD, SIG_DFL);
}

std::optional<int> EventProgram::run(const Event &event, int maxStatus) const
{
    pid_t process = -1;
    const int error = Start(signalMask_).run(program_, environmentFor(variablePrefix_, event), process);
    End end = error == 0 ? waitForEnd(process) : End{-1, std::string("cannot be run: ") + std::strerror(error)};
    if (end.fault.empty() && end.status > maxStatus) {
        end.fault = "exited with status " + std::to_string(end.status);
    }
    if (end.fault.empty()) {
        return end.status;
    }
    const std::string sentence = program_ + " " + end.fault + " (event \"" + nameOf(event) + "\")";
    std::fprintf(stderr, "%s: %s\n", messagePrefix_.c_str(), displayText(sentence).text.c_str());
    return std::nullopt;
}

}  // namespace kvoctl
