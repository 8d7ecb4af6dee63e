// The parts of a report.
#pragma once

#include "kvoctl/report/content.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kvoctl::reporting {

struct Options {
    bool anonymize = false;
    std::optional<std::chrono::seconds> trace{};
    std::filesystem::path folder{};  ///< where a part may have temporary files
};

/// What a part needs to know when it is made.
struct Circumstances {
    std::string serviceFault{};                           ///< why the service is not asked; empty if it is
    std::function<void(const std::string &)> progress{};  ///< shows a short text to the user
};

struct Part {
    std::string name;  ///< of its files, for people
    std::string why;   ///< what it is good for, in at most 50 columns
    std::chrono::seconds limit;
    /// Runs in a process of its own, which may be ended with SIGTERM. Throws an exception whose text is the reason if there is nothing
    /// to report.
    std::function<Content(const Circumstances &)> make;
};

/// In the order in which they are made.
std::vector<Part> partsOf(const Options &options);

// ---- What the parts contain ----

Content doctorFindings(const Circumstances &circumstances);
Content versions(const Circumstances &circumstances);
Content machine(const Circumstances &circumstances);
Content libraries(const Circumstances &circumstances);
Content programs(const Circumstances &circumstances);
Content configuration(const Circumstances &circumstances);
Content sockets(const Circumstances &circumstances);
Content plant(const Circumstances &circumstances);
/// @p folder  of a temporary file
Content trace(const Circumstances &circumstances, std::chrono::seconds length, const std::filesystem::path &folder);
/// @p onlyLibrary  leaves out the lines of programs, whose form is unknown
Content systemLog(const Circumstances &circumstances, bool onlyLibrary);

// ---- What several of them need ----

/// The text of a file, such as one in /proc; nothing if it cannot be read.
std::optional<std::string> readFile(const std::filesystem::path &path);

/// The names of the processes that listen at the service's socket and at the one that a trace has left aside.
std::vector<std::string> serviceNames();

}  // namespace kvoctl::reporting
