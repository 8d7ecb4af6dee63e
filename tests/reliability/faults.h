// Makes one call of the library fail with one error: the n-th call of a function on one thread of a scenario. Calls of tests
// and of other libraries are not counted and do not fail.
#pragma once

#include "support/system_calls.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace reliability {

/// The functions whose calls can fail, in the order of the tables.
enum class Call : std::size_t {
    socket,
    setsockopt,
    getsockopt,
    connectLocal,
    connectRemote,
    unlink,
    bind,
    listen,
    accept4,
    poll,
    recv,
    send,
    sendto,
    open,
    fstat,
    read,
    write,
    ioctl,
    fopen,
    fgets,
    opendir,
    readdir,
    gethostname,
    select,
    sigaction,
    semInit,
    semTimedwait,
    clockNanosleep,
    close,
    pthreadCreate,
    memory,  ///< every allocation of a thread, starting with the n-th
    count
};
inline constexpr auto kCalls = static_cast<std::size_t>(Call::count);

/// How a call fails.
struct Error {
    enum class Kind {
        number,   ///< with an error number
        nothing,  ///< with 0: a timeout or the end of file
        oneByte   ///< it succeeds, but only for one byte
    };
    int number = 0;
    Kind kind = Kind::number;
    const char *name = nullptr;  ///< null: the name of the error number
};

const char *nameOf(Call call);
const char *nameOf(const Error &error);
std::span<const Error> errorsOf(Call call);

/// A call of a scenario.
struct Site {
    Call call;
    std::size_t thread;  ///< 0: the caller of the library; 1 and up: the threads that it creates, in order
    int number;          ///< 1 and up
    std::string step{};  ///< for allocations of thread 0: the step of the scenario
};

struct Fault {
    Site site;
    Error error;
};

/// The path of the trace file of a scenario.
inline constexpr const char *kTraceFile = "/tmp/kvo_hws/traceIt.log";

namespace faults {

/// The replacements of system calls for scenarios. They also shorten the library's pauses, redirect its trace file, and make
/// standard input a console.
support::SystemCalls replacements();

/// Begins a scenario, with or without a fault.
void begin(const Fault *fault = nullptr);

/// Whether the fault has occurred; for memory, whether all permitted allocations were used up.
bool occurred();

/// The calls of the last scenario, without allocations.
std::vector<Site> sites();

/// The number of threads that the library created in the last scenario.
std::size_t threads();

/// How many of these threads have not ended.
std::size_t runningThreads();

/// Runs @p work with the number of allocations that the fault permits for the step.
int withMemory(const std::string &step, const std::function<int()> &work);

}  // namespace faults

}  // namespace reliability
