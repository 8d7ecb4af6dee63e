// The replacements of system calls: they count the calls of the library and make one of them fail.
#include "reliability/faults.h"

#include "support/failing_allocations.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <thread>
#include <unistd.h>
#include <utility>

using namespace std::chrono_literals;

namespace reliability {

namespace {

constexpr std::size_t kThreads = 16;

constexpr Error::Kind kNothing = Error::Kind::nothing;
constexpr Error::Kind kOneByte = Error::Kind::oneByte;

/// The state of the current scenario. Members that are not atomic change only between scenarios.
struct Scenario {
    const Fault *fault = nullptr;
    std::array<std::array<std::atomic<int>, kCalls>, kThreads> calls{};
    std::atomic<std::size_t> threads{0};
    std::atomic<std::size_t> running{0};  ///< threads that have not ended
    std::atomic<bool> occurred{false};
    std::atomic<bool> bytewise{false};  ///< after its fault, a scenario reads one byte at a time
};

Scenario scenario;
thread_local std::size_t ownThread = 0;

/// Counts a call of the library. Returns its error, or null if it does not fail.
const Error *countCall(Call call, bool byLibrary = support::calledByLibrary())
{
    if (!byLibrary || ownThread >= kThreads) {
        return nullptr;
    }
    const int number = ++scenario.calls[ownThread][static_cast<std::size_t>(call)];
    const Fault *const fault = scenario.fault;
    if (fault == nullptr || fault->site.call != call || fault->site.thread != ownThread || fault->site.number != number) {
        return nullptr;
    }
    scenario.occurred = true;
    return &fault->error;
}

/// The result of a call that fails only with error numbers.
int answerTo(Call call, bool byLibrary = support::calledByLibrary())
{
    const Error *const error = countCall(call, byLibrary);
    if (error == nullptr) {
        return support::kPassThrough;
    }
    if (error->kind == kNothing) {
        return 0;
    }
    errno = error->number;
    return -1;
}

bool failsWithNull(Call call)
{
    const Error *const error = countCall(call);
    if (error != nullptr) {
        errno = error->number;
    }
    return error != nullptr;
}

int connectAnswer(int fd, const sockaddr *address, socklen_t length)
{
    const bool remote = address->sa_family == AF_INET;
    const int answer = answerTo(remote ? Call::connectRemote : Call::connectLocal);
    if (answer == -1 && remote && errno == EINTR) {
        // The kernel continues to connect in this case.
        syscall(SYS_connect, fd, address, length);
        errno = EINTR;
    }
    return answer;
}

int closeAnswer(int fd)
{
    const int answer = answerTo(Call::close);
    if (answer == -1) {
        const int number = errno;
        syscall(SYS_close, fd);  // close() releases the descriptor even if it fails
        errno = number;
    }
    return answer;
}

/// Whether the thread's last poll found data that it has not peeked at yet.
thread_local bool pollFoundData = false;

/// Counts only calls that find data: the number of timeouts depends on timing.
int pollAnswer(pollfd *descriptors, nfds_t count, int milliseconds)
{
    constexpr int kSecond = 1000;
    constexpr int kShort = 4;
    if (!support::calledByLibrary()) {
        return support::kPassThrough;
    }
    const int time = milliseconds == kSecond ? kShort : milliseconds;
    const timespec bound{.tv_sec = time / 1000, .tv_nsec = time % 1000 * 1'000'000L};
    const int ready = ppoll(descriptors, count, &bound, nullptr);
    if (ready <= 0) {
        return ready;
    }
    const int answer = answerTo(Call::poll);
    pollFoundData = answer == support::kPassThrough;
    return pollFoundData ? ready : answer;
}

ssize_t recvAnswer(int fd, void *bytes, std::size_t length, int flags)
{
    if (!support::calledByLibrary()) {
        return support::kPassThrough;
    }
    const bool peeks = (flags & MSG_PEEK) != 0 && (flags & MSG_DONTWAIT) != 0;
    if (peeks && !std::exchange(pollFoundData, false)) {
        // Whether data is available before the poll depends on timing. Here, none ever is.
        errno = EAGAIN;
        return -1;
    }
    const Error *const error = countCall(Call::recv);
    if (error != nullptr && error->kind != kOneByte) {
        errno = error->number;
        return error->kind == kNothing ? 0 : -1;
    }
    if (error != nullptr) {
        scenario.bytewise = true;
    }
    return scenario.bytewise ? recvfrom(fd, bytes, std::min<std::size_t>(length, 1), flags, nullptr, nullptr)
                             : ssize_t{support::kPassThrough};
}

ssize_t readAnswer(int fd, void *bytes, std::size_t length)
{
    const Error *const error = countCall(Call::read);
    if (error != nullptr && error->kind != kOneByte) {
        errno = error->number;
        return error->kind == kNothing ? 0 : -1;
    }
    if (error != nullptr) {
        scenario.bytewise = true;
    }
    return scenario.bytewise && support::calledByLibrary() ? syscall(SYS_read, fd, bytes, std::min<std::size_t>(length, 1))
                                                           : ssize_t{support::kPassThrough};
}

ssize_t sendAnswer(int fd, const void *bytes, std::size_t /*length*/, int flags)
{
    const Error *const error = countCall(Call::send);
    if (error == nullptr) {
        return support::kPassThrough;
    }
    if (error->kind == kOneByte) {
        return syscall(SYS_sendto, fd, bytes, 1, flags, nullptr, 0);
    }
    errno = error->number;
    return -1;
}

ssize_t writeAnswer(int fd, const void *bytes, std::size_t /*length*/)
{
    const Error *const error = countCall(Call::write);
    if (error == nullptr) {
        return support::kPassThrough;
    }
    if (error->kind == kOneByte) {
        return syscall(SYS_write, fd, bytes, 1);
    }
    errno = error->number;
    return -1;
}

int openAnswer(const char *path, int flags, mode_t mode)
{
    const int answer = answerTo(Call::open);
    if (answer == support::kPassThrough && support::calledByLibrary() && std::string_view(path) == "/user/traceIt.log") {
        return openat(AT_FDCWD, kTraceFile, flags, mode);
    }
    return answer;
}

int ioctlAnswer()
{
    const int answer = answerTo(Call::ioctl);
    return answer == support::kPassThrough && support::calledByLibrary() ? 0 : answer;
}

/// Divides every pause, so hundreds of scenarios run in a minute.
constexpr int kSpeedup = 250;

int sleepAnswer(const timespec *time)
{
    if (!support::calledByLibrary()) {
        return support::kPassThrough;
    }
    if (const Error *const error = countCall(Call::clockNanosleep)) {
        return error->number;  // unlike the other calls, this one returns the error number
    }
    constexpr std::chrono::nanoseconds kShortest = 1ms;  // loops that count such pauses take their normal time
    const std::chrono::nanoseconds whole = std::chrono::seconds(time->tv_sec) + std::chrono::nanoseconds(time->tv_nsec);
    std::this_thread::sleep_for(std::max(kShortest, whole / kSpeedup));
    return 0;
}

/// Shortens a timeout of one second like the other pauses. It is a wait that a stop request ends.
int selectAnswer(timeval *time)
{
    const int answer = answerTo(Call::select);
    if (answer == support::kPassThrough && time->tv_sec == 1) {
        *time = {.tv_sec = 0, .tv_usec = 1'000'000 / kSpeedup};
    }
    return answer;
}

int threadAnswer()
{
    const Error *const error = countCall(Call::pthreadCreate);
    return error == nullptr ? support::kPassThrough : error->number;
}

/// Records whether the calling thread has used up its permitted allocations.
void recordExhaustion()
{
    void *volatile block = std::malloc(1);
    if (block == nullptr) {
        scenario.occurred = true;
    }
    std::free(block);
}

bool lacksMemory(std::size_t thread, const std::string &step)
{
    const Fault *const fault = scenario.fault;
    return fault != nullptr && fault->site.call == Call::memory && fault->site.thread == thread &&
           (thread != 0 || fault->site.step == step);
}

std::function<void *()> threadOf(std::function<void *()> work)
{
    const std::size_t number = ++scenario.threads;
    ++scenario.running;
    // Goes with the work when the thread has ended, or if it cannot be started.
    const std::shared_ptr<void> ending(nullptr, [](void *) { --scenario.running; });
    return [number, work = std::move(work), ending] {
        ownThread = number;
        if (!lacksMemory(number, {})) {
            return work();
        }
        const support::FailingAllocations failing(scenario.fault->site.number - 1);
        void *const result = work();
        recordExhaustion();
        return result;
    };
}

}  // namespace

support::SystemCalls faults::replacements()
{
    return {.socket = [](int) { return answerTo(Call::socket); },
            .bind = [](int, const sockaddr *, socklen_t) { return answerTo(Call::bind); },
            .listen = [](int, int) { return answerTo(Call::listen); },
            .accept4 = [](int) { return answerTo(Call::accept4); },
            .poll = pollAnswer,
            .select = selectAnswer,
            .open = openAnswer,
            .connect = connectAnswer,
            .recv = recvAnswer,
            .send = sendAnswer,
            .sendto = [](int, const void *, std::size_t, const sockaddr *) { return ssize_t{answerTo(Call::sendto)}; },
            .setsockopt = [](int, int, int) { return answerTo(Call::setsockopt); },
            .pthreadCreate = threadAnswer,
            .getsockopt = [](int, int, int) { return answerTo(Call::getsockopt); },
            .unlink = [](const char *) { return answerTo(Call::unlink); },
            .close = closeAnswer,
            .fstat = [](int) { return answerTo(Call::fstat); },
            .read = readAnswer,
            .write = writeAnswer,
            .ioctl = [](int, unsigned long, void *) { return ioctlAnswer(); },
            .sigaction = [](int) { return answerTo(Call::sigaction); },
            .clockNanosleep = sleepAnswer,
            // Always counted as a call of the library, because it may be a tail call. Nothing else calls it.
            .semInit = [] { return answerTo(Call::semInit, true); },
            .semTimedwait = [] { return answerTo(Call::semTimedwait); },
            .gethostname = [] { return answerTo(Call::gethostname); },
            .fopenFails = [](const char *) { return failsWithNull(Call::fopen); },
            .fgetsFails = [] { return failsWithNull(Call::fgets); },
            .opendirFails = [](const char *) { return failsWithNull(Call::opendir); },
            .readdirFails = [] { return failsWithNull(Call::readdir); },
            .threadWork = threadOf};
}

void faults::begin(const Fault *fault)
{
    scenario.fault = fault;
    for (auto &thread : scenario.calls) {
        for (auto &calls : thread) {
            calls = 0;
        }
    }
    scenario.threads = 0;
    scenario.occurred = false;
    scenario.bytewise = false;
}

bool faults::occurred() { return scenario.occurred; }

std::vector<Site> faults::sites()
{
    std::vector<Site> sites;
    for (std::size_t thread = 0; thread < kThreads; ++thread) {
        for (std::size_t call = 0; call < kCalls; ++call) {
            for (int number = 1; number <= scenario.calls[thread][call]; ++number) {
                sites.push_back({static_cast<Call>(call), thread, number});
            }
        }
    }
    return sites;
}

std::size_t faults::threads() { return scenario.threads; }

std::size_t faults::runningThreads() { return scenario.running; }

int faults::withMemory(const std::string &step, const std::function<int()> &work)
{
    if (!lacksMemory(0, step)) {
        return work();
    }
    const support::FailingAllocations failing(scenario.fault->site.number - 1);
    const int result = work();
    recordExhaustion();
    return result;
}

}  // namespace reliability
