// Starts the program with pipes or a terminal and reads its output until it ends.
#include "tools/kvoctl/support/kvoctl.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

namespace kvoctl_test {

namespace {

/// The two ends of one of the program's outputs.
struct Channel {
    int reading = -1;
    int writing = -1;
};

void check(bool worked, const char *what)
{
    if (!worked) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

Channel pipeChannel()
{
    std::array<int, 2> ends{};
    check(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe2");
    return {ends[0], ends[1]};
}

Channel terminalChannel(unsigned short columns)
{
    Channel channel;
    const winsize size{.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    termios plain{};  // no translation of line feeds
    check(openpty(&channel.reading, &channel.writing, nullptr, &plain, &size) == 0, "openpty");
    return channel;
}

Channel outputChannel(const RunConditions &conditions)
{
    if (conditions.outputFile != nullptr) {
        return {-1, open(conditions.outputFile, O_WRONLY | O_CLOEXEC)};
    }
    return conditions.terminal ? terminalChannel(*conditions.terminal) : pipeChannel();
}

std::vector<char *> pointers(const std::vector<std::string> &texts)
{
    std::vector<char *> list;
    list.reserve(texts.size() + 1);
    for (const std::string &text : texts) {
        list.push_back(const_cast<char *>(text.c_str()));
    }
    list.push_back(nullptr);
    return list;
}

std::vector<std::string> environmentWith(const std::vector<std::string> &changes)
{
    std::vector<std::string> variables;
    const auto isChanged = [&changes](const std::string &variable) {
        const std::string name = variable.substr(0, variable.find('=') + 1);
        return name == "COLUMNS=" || name == "NO_COLOR=" ||
               std::any_of(changes.begin(), changes.end(),
                           [&name](const std::string &change) { return change.starts_with(name); });
    };
    for (char **variable = environ; *variable != nullptr; ++variable) {
        if (!isChanged(*variable)) {
            variables.emplace_back(*variable);
        }
    }
    variables.insert(variables.end(), changes.begin(), changes.end());
    return variables;
}

pid_t start(const Arguments &arguments, const RunConditions &conditions, int out, int err)
{
    Arguments command{KVOCTL_PROGRAM};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const std::vector<std::string> variables = environmentWith(conditions.environment);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, conditions.inputFile, O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    pid_t process = -1;
    const int error =
        posix_spawn(&process, KVOCTL_PROGRAM, &actions, nullptr, pointers(command).data(), pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    errno = error;
    check(error == 0, KVOCTL_PROGRAM);
    return process;
}

/// Reads both outputs until all writers have closed them; for a terminal, read then fails.
void readAll(int out, std::string &outText, int err, std::string &errText)
{
    std::array<pollfd, 2> sources{pollfd{.fd = out, .events = POLLIN, .revents = 0},
                                  pollfd{.fd = err, .events = POLLIN, .revents = 0}};
    while (sources[0].fd >= 0 || sources[1].fd >= 0) {
        check(poll(sources.data(), sources.size(), -1) > 0 || errno == EINTR, "poll");
        for (pollfd &source : sources) {
            if (source.fd < 0 || source.revents == 0) {
                continue;
            }
            std::array<char, 4096> bytes{};
            const ssize_t count = read(source.fd, bytes.data(), bytes.size());
            if (count <= 0) {
                close(source.fd);
                source.fd = -1;
                continue;
            }
            (&source == sources.data() ? outText : errText).append(bytes.data(), static_cast<std::size_t>(count));
        }
    }
}

}  // namespace

Ended kvoctl(const Arguments &arguments, const RunConditions &conditions)
{
    const Channel out = outputChannel(conditions);
    const Channel err = pipeChannel();
    const pid_t process = start(arguments, conditions, out.writing, conditions.errorsToTerminal ? out.writing : err.writing);
    close(out.writing);
    close(err.writing);
    Ended ended{};
    readAll(out.reading, ended.out, err.reading, ended.err);
    int status = 0;
    check(waitpid(process, &status, 0) == process, "waitpid");
    ended.status = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    return ended;
}

}  // namespace kvoctl_test
