// Starts the program without a shell: what devices call themselves never becomes part of a command.
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

/// Our own environment with those of the event; without what another kvoctl may have put there, which started this one.
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

/// Its exit status, or what is wrong with how it ended.
struct End {
    int status;
    std::string fault{};
};

End awaitEnd(pid_t process)
{
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) {
            return {-1, std::string("can not be waited for: ") + std::strerror(errno)};
        }
    }
    if (WIFSIGNALED(status)) {
        return {-1, "was ended by signal " + std::to_string(WTERMSIG(status))};
    }
    return {WEXITSTATUS(status)};
}

/// What an event is called in a complaint.
std::string nameOf(const Event &event)
{
    return !event.word.empty() || event.fields.empty() ? event.word : event.fields.front().value.text();
}

}  // namespace

EventProgram::EventProgram(std::string program, std::string variables, const sigset_t &signals, std::string complaint)
    : program_(std::move(program)), variables_(std::move(variables)), signals_(signals), complaint_(std::move(complaint))
{
    // Where our own parent ignores it, so do we, and a program's status is lost.
    std::signal(SIGCHLD, SIG_DFL);
}

std::optional<int> EventProgram::run(const Event &event, int greatest) const
{
    pid_t process = -1;
    const int error = Start(signals_).run(program_, environmentFor(variables_, event), process);
    End end = error == 0 ? awaitEnd(process) : End{-1, std::string("can not be run: ") + std::strerror(error)};
    if (end.fault.empty() && end.status > greatest) {
        end.fault = "ended with status " + std::to_string(end.status);
    }
    if (end.fault.empty()) {
        return end.status;
    }
    const std::string sentence = program_ + " " + end.fault + " (event \"" + nameOf(event) + "\")";
    std::fprintf(stderr, "%s: %s\n", complaint_.c_str(), displayText(sentence).text.c_str());
    return std::nullopt;
}

}  // namespace kvoctl
