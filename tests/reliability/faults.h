// One call of the library that fails, in one way: the n-th call of a function on one of the threads of a journey. Calls of
// tests and of other libraries neither count nor fail.
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
    memory,  ///< every allocation of a thread from the n-th on
    count
};
inline constexpr auto kCalls = static_cast<std::size_t>(Call::count);

/// How a call fails.
struct Error {
    enum class Kind {
        number,   ///< with an error number
        nothing,  ///< with 0: a time-out, or an end
        oneByte   ///< it goes well, but for one byte only
    };
    int number = 0;
    Kind kind = Kind::number;
    const char *name = nullptr;  ///< null: that of the error number
};

const char *nameOf(Call call);
const char *nameOf(const Error &error);
std::span<const Error> errorsOf(Call call);

/// A call of a journey.
struct Site {
    Call call;
    std::size_t thread;  ///< 0: whoever calls the library; 1 and up: the threads that it creates, in their order
    int number;          ///< 1 and up
    std::string step{};  ///< of the allocations of thread 0: the step of the journey that they belong to
};

struct Fault {
    Site site;
    Error error;
};

/// Where the trace file of a journey is.
inline constexpr const char *kTraceFile = "/tmp/kvo_hws/traceIt.log";

namespace faults {

/// To be in place while journeys run; also shortens the library's pauses, leads its trace file elsewhere, and makes standard
/// input a console.
support::SystemCalls standIns();

/// Begins a journey without a fault, or with one.
void begin(const Fault *fault = nullptr);

/// Whether the fault has come about; for memory, whether all that was granted was used up.
bool happened();

/// The calls of the journey that has just ended, but for memory.
std::vector<Site> sites();

/// How many threads the library has created in it.
std::size_t threads();

/// Runs @p work with the memory that the step is granted.
int withMemory(const std::string &step, const std::function<int()> &work);

}  // namespace faults

}  // namespace reliability
