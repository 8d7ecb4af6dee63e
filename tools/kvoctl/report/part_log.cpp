// The log lines of the library, of the service and of the programs that use the library.
#include "common/descriptor.h"
#include "kvoctl/report/part.h"
#include "kvoctl/report/processes.h"

#include <algorithm>
#include <array>
#include <deque>
#include <fcntl.h>
#include <set>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace kvoctl::reporting {

namespace {

using tools::Descriptor;
using Identities = std::set<std::string>;

constexpr std::size_t kMostLines = 5000;
/// The traces of the library. Programs that call them decide what they contain.
constexpr const char *kTraces = "/user/traceIt.log";
constexpr off_t kReadFromEnd = 16LL * 1024 * 1024;

/// The library logs with the first two after a program has initialized it so, else with the name of the program.
Identities identities(bool onlyLibrary)
{
    Identities all{"kvo_hws", "kvo_hws_dll"};
    if (onlyLibrary) {
        return all;
    }
    for (const std::string &name : serviceNames()) {
        all.insert(name);
    }
    for (const Process &process : processesWithLibrary().found) {
        all.insert(process.name);
    }
    all.erase("kvoctl");         // it writes the library's messages to standard error
    all.erase("kvo_tap_guard");  // a process of kvoctl
    return all;
}

// ---- The journal ----

struct Ended {
    std::string output;
    int status;
};

std::string readAll(int descriptor)
{
    std::string text;
    std::array<char, 65536> bytes{};
    for (ssize_t count = 0; (count = TEMP_FAILURE_RETRY(read(descriptor, bytes.data(), bytes.size()))) > 0;) {
        text.append(bytes.data(), static_cast<std::size_t>(count));
    }
    return text;
}

/// Runs a program; its messages go to those of this process. Nothing if it is not installed.
std::optional<Ended> outputOf(std::vector<std::string> command)
{
    std::vector<char *> arguments;
    for (std::string &word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, writing.get(), STDOUT_FILENO);
    pid_t process = -1;
    const int error = posix_spawnp(&process, arguments.front(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        return std::nullopt;
    }
    writing = Descriptor();
    Ended ended{readAll(reading.get()), -1};
    int status = 0;
    TEMP_FAILURE_RETRY(waitpid(process, &status, 0));
    ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ended;
}

std::string withoutHints(const std::string &output)
{
    std::istringstream lines(output);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        kept += line.starts_with("-- ") ? "" : line + '\n';  // "-- No entries --"
    }
    return kept;
}

struct Log {
    std::string lines;
    std::string source;
};

std::optional<Log> fromJournal(const Identities &names, std::vector<std::string> &reasons)
{
    std::vector<std::string> command{"journalctl",         "--no-pager", "--no-hostname",           "--quiet",
                                     "--output=short-iso", "--lines",    std::to_string(kMostLines)};
    for (const std::string &name : names) {
        command.insert(command.end(), {"--identifier", name});
    }
    const std::optional<Ended> ended = outputOf(std::move(command));
    if (!ended) {
        reasons.emplace_back("journalctl is not installed");
        return std::nullopt;
    }
    const std::string lines = withoutHints(ended->output);
    if (lines.empty()) {
        reasons.emplace_back(ended->status == 0 ? "the journal has no such lines for this user" : "journalctl failed");
        return std::nullopt;
    }
    return Log{lines, "the journal"};
}

// ---- Log files ----

/// Where the identity begins in a line such as "Nov 22 14:03:22 host name[12]: text", if it is one of @p names.
std::optional<std::size_t> identityIn(std::string_view line, const Identities &names)
{
    for (const std::string &name : names) {
        for (const char end : {'[', ':'}) {
            const std::size_t at = line.substr(0, line.find(": ") + 2).find(' ' + name + end);
            if (at != std::string_view::npos) {
                return at + 1;
            }
        }
    }
    return std::nullopt;
}

/// Without the name of the host, which precedes the identity.
std::string withoutHost(std::string_view line, std::size_t identity)
{
    const std::size_t host = identity < 2 ? std::string_view::npos : line.rfind(' ', identity - 2);
    return host == std::string_view::npos ? std::string(line)
                                          : std::string(line.substr(0, host + 1)) + std::string(line.substr(identity));
}

/// The end of a file, which may have gigabytes.
std::string endOf(const Descriptor &file)
{
    const off_t size = lseek(file.get(), 0, SEEK_END);
    lseek(file.get(), std::max<off_t>(0, size - kReadFromEnd), SEEK_SET);
    return readAll(file.get());
}

std::optional<Log> fromFile(const std::string &path, const Identities &names, std::vector<std::string> &reasons)
{
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.valid()) {
        reasons.push_back(path + ": " + std::generic_category().message(errno));
        return std::nullopt;
    }
    std::istringstream text(endOf(file));
    std::deque<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        if (const std::optional<std::size_t> identity = identityIn(line, names)) {
            lines.push_back(withoutHost(line, *identity));
        }
        if (lines.size() > kMostLines) {
            lines.pop_front();
        }
    }
    if (lines.empty()) {
        reasons.push_back(path + " has no such lines");
        return std::nullopt;
    }
    Log log{"", path};
    for (const std::string &line : lines) {
        log.lines += line + '\n';
    }
    return log;
}

std::string joinedBy(const std::string &separator, const auto &texts)
{
    std::string all;
    for (const std::string &text : texts) {
        all += (all.empty() ? "" : separator) + text;
    }
    return all;
}

}  // namespace

Content systemLog(const Circumstances & /*circumstances*/, bool onlyLibrary)
{
    Content content;
    const Identities names = identities(onlyLibrary);
    std::vector<std::string> reasons;
    std::optional<Log> log = fromJournal(names, reasons);
    for (const char *path : {"/var/log/syslog", "/var/log/messages"}) {
        if (!log) {
            log = fromFile(path, names, reasons);
        }
    }
    const std::string list = joinedBy(", ", names);
    if (log) {
        const std::string heading =
            "# The lines of " + list + " in " + log->source + ", at most " + std::to_string(kMostLines) + '\n';
        content.files.push_back({"log.txt", heading + log->lines, Form::log});
    } else {
        content.notes.push_back("no lines of " + list + " in the system log: " + joinedBy("; ", reasons));
    }
    if (onlyLibrary) {
        content.notes.emplace_back("the lines of the service and of programs are left out: they may contain any names");
    } else if (const Descriptor traces(open(kTraces, O_RDONLY | O_CLOEXEC)); traces.valid()) {
        content.files.push_back({"traceIt.log", endOf(traces)});
    }
    if (content.files.empty()) {
        throw std::runtime_error(content.notes.front());
    }
    return content;
}

}  // namespace kvoctl::reporting
