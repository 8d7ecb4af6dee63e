#include "kvoctl/report/processes.h"

#include "kvoctl/report/part.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <optional>
#include <sstream>
#include <unistd.h>

namespace kvoctl::reporting {

namespace {

constexpr const char *kLibraryFile = "/libkvo_hws.so";

/// The number of a process, if the entry of /proc is one.
std::optional<int> processId(const std::filesystem::path &entry)
{
    const std::string name = entry.filename();
    int id = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
    return error == std::errc() && end == name.data() + name.size() ? std::optional(id) : std::nullopt;
}

/// Calls @p visit with the number and the folder of each process.
template <class Visit>
void forEachProcess(const Visit &visit)
{
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator("/proc", ignored)) {
        if (const std::optional<int> id = processId(entry.path())) {
            visit(*id, entry.path());
        }
    }
}

std::string nameOfProcess(const std::filesystem::path &folder)
{
    std::string name = readFile(folder / "comm").value_or("");
    std::erase(name, '\n');
    return name.empty() ? "(unknown)" : name;
}

/// The file of the library in the list of a process's mapped files; empty if it has not loaded it.
std::string libraryIn(const std::string &maps)
{
    std::istringstream lines(maps);
    for (std::string line; std::getline(lines, line);) {
        if (line.find(kLibraryFile) != std::string::npos) {
            return line.substr(line.find('/'));
        }
    }
    return {};
}

}  // namespace

std::map<std::string, std::set<int>> socketOwners()
{
    std::map<std::string, std::set<int>> owners;
    forEachProcess([&](int id, const std::filesystem::path &folder) {
        std::error_code ignored;
        for (const auto &entry : std::filesystem::directory_iterator(folder / "fd", ignored)) {
            const std::string target = std::filesystem::read_symlink(entry.path(), ignored);
            if (target.starts_with("socket:[")) {
                owners[target.substr(8, target.size() - 9)].insert(id);
            }
        }
    });
    return owners;
}

std::string describeProcess(int id)
{
    const std::string number = std::to_string(id);
    return nameOfProcess("/proc/" + number) + "[" + number + "]";
}

Processes processesWithLibrary()
{
    Processes processes;
    forEachProcess([&](int id, const std::filesystem::path &folder) {
        errno = 0;
        const std::optional<std::string> maps = readFile(folder / "maps");
        if (!maps) {
            processes.hidden += errno == EACCES || errno == EPERM ? 1 : 0;  // any other one has ended, or is of the kernel
        } else if (const std::string library = libraryIn(*maps); !library.empty() && id != getpid() && id != getppid()) {
            processes.found.push_back({id, nameOfProcess(folder), library});
        }
    });
    std::ranges::sort(processes.found, {}, &Process::id);
    return processes;
}

Content programs(const Circumstances & /*circumstances*/)
{
    const Processes processes = processesWithLibrary();
    std::ostringstream text;
    if (processes.found.empty()) {
        text << (processes.hidden == 0 ? "No program has loaded the library now.\n"
                                       : "No program that this user may examine has loaded the library now.\n");
    }
    for (const Process &process : processes.found) {
        text << process.name << '[' << process.id << "]\n  library  " << process.library << '\n';
    }
    if (processes.found.end() !=
        std::ranges::find_if(processes.found, [](const Process &each) { return each.library.ends_with("(deleted)"); })) {
        text << "\n\"(deleted)\": the library was replaced after the program had started. Start the program again.\n";
    }
    Content content{.files = {{"programs.txt", text.str()}}};
    if (processes.hidden > 0) {
        content.notes.push_back(std::to_string(processes.hidden) + (processes.hidden == 1 ? " process" : " processes") +
                                " could not be examined" + (geteuid() == 0 ? "" : "; root can examine them"));
    }
    return content;
}

}  // namespace kvoctl::reporting
