// One call of the library that fails, in one way: what the stand-ins of the calls answer, and what they count.
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

/// The journey under way. Changed between journeys alone, but for what is atomic.
struct Journey {
    const Fault *fault = nullptr;
    std::array<std::array<std::atomic<int>, kCalls>, kThreads> calls{};
    std::atomic<std::size_t> threads{0};
    std::atomic<bool> happened{false};
    std::atomic<bool> bytewise{false};  ///< from its fault on a journey reads one byte at a time
};

Journey journey;
thread_local std::size_t ownThread = 0;

/// Counts a call of the library. Returns how it fails, null where it does not.
const Error *take(Call call, bool byLibrary = support::calledByLibrary())
{
    if (!byLibrary || ownThread >= kThreads) {
        return nullptr;
    }
    const int number = ++journey.calls[ownThread][static_cast<std::size_t>(call)];
    const Fault *const fault = journey.fault;
    if (fault == nullptr || fault->site.call != call || fault->site.thread != ownThread || fault->site.number != number) {
        return nullptr;
    }
    journey.happened = true;
    return &fault->error;
}

/// The answer of a call whose errors are numbers alone.
int answerTo(Call call, bool byLibrary = support::calledByLibrary())
{
    const Error *const failure = take(call, byLibrary);
    if (failure == nullptr) {
        return support::kPassThrough;
    }
    if (failure->kind == kNothing) {
        return 0;
    }
    errno = failure->number;
    return -1;
}

bool failsWithNull(Call call)
{
    const Error *const failure = take(call);
    if (failure != nullptr) {
        errno = failure->number;
    }
    return failure != nullptr;
}

int connectAnswer(int fd, const sockaddr *address, socklen_t length)
{
    const bool remote = address->sa_family == AF_INET;
    const int answer = answerTo(remote ? Call::connectRemote : Call::connectLocal);
    if (answer == -1 && remote && errno == EINTR) {
        // The system goes on with it all the same.
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
        syscall(SYS_close, fd);  // the descriptor is gone whatever close() says
        errno = number;
    }
    return answer;
}

/// Whether the thread's last wait has found something that it has not looked at yet.
thread_local bool wasFound = false;

/// Only a wait that found something counts: how often one runs out depends on time alone.
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
    wasFound = answer == support::kPassThrough;
    return wasFound ? ready : answer;
}

ssize_t recvAnswer(int fd, void *bytes, std::size_t length, int flags)
{
    if (!support::calledByLibrary()) {
        return support::kPassThrough;
    }
    const bool looksAhead = (flags & MSG_PEEK) != 0 && (flags & MSG_DONTWAIT) != 0;
    if (looksAhead && !std::exchange(wasFound, false)) {
        // Whether something is there before it is waited for depends on time alone: here nothing ever is.
        errno = EAGAIN;
        return -1;
    }
    const Error *const failure = take(Call::recv);
    if (failure != nullptr && failure->kind != kOneByte) {
        errno = failure->number;
        return failure->kind == kNothing ? 0 : -1;
    }
    if (failure != nullptr) {
        journey.bytewise = true;
    }
    return journey.bytewise ? recvfrom(fd, bytes, std::min<std::size_t>(length, 1), flags, nullptr, nullptr)
                            : ssize_t{support::kPassThrough};
}

ssize_t readAnswer(int fd, void *bytes, std::size_t length)
{
    const Error *const failure = take(Call::read);
    if (failure != nullptr && failure->kind != kOneByte) {
        errno = failure->number;
        return failure->kind == kNothing ? 0 : -1;
    }
    if (failure != nullptr) {
        journey.bytewise = true;
    }
    return journey.bytewise && support::calledByLibrary() ? syscall(SYS_read, fd, bytes, std::min<std::size_t>(length, 1))
                                                          : ssize_t{support::kPassThrough};
}

ssize_t sendAnswer(int fd, const void *bytes, std::size_t /*length*/, int flags)
{
    const Error *const failure = take(Call::send);
    if (failure == nullptr) {
        return support::kPassThrough;
    }
    if (failure->kind == kOneByte) {
        return syscall(SYS_sendto, fd, bytes, 1, flags, nullptr, 0);
    }
    errno = failure->number;
    return -1;
}

ssize_t writeAnswer(int fd, const void *bytes, std::size_t /*length*/)
{
    const Error *const failure = take(Call::write);
    if (failure == nullptr) {
        return support::kPassThrough;
    }
    if (failure->kind == kOneByte) {
        return syscall(SYS_write, fd, bytes, 1);
    }
    errno = failure->number;
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

/// Every pause is shorter by this, so that hundreds of journeys fit into a minute.
constexpr int kHaste = 250;

int sleepAnswer(const timespec *time)
{
    if (!support::calledByLibrary()) {
        return support::kPassThrough;
    }
    if (const Error *const failure = take(Call::clockNanosleep)) {
        return failure->number;  // the one of these calls that returns it
    }
    constexpr std::chrono::nanoseconds kShortest = 1ms;  // waits that count such pauses last as long as ever
    const std::chrono::nanoseconds whole = std::chrono::seconds(time->tv_sec) + std::chrono::nanoseconds(time->tv_nsec);
    std::this_thread::sleep_for(std::max(kShortest, whole / kHaste));
    return 0;
}

/// The pause of a second is a wait that a stop ends, and has as little to do with faults as the other pauses.
int selectAnswer(timeval *time)
{
    const int answer = answerTo(Call::select);
    if (answer == support::kPassThrough && time->tv_sec == 1) {
        *time = {.tv_sec = 0, .tv_usec = 1'000'000 / kHaste};
    }
    return answer;
}

int threadAnswer()
{
    const Error *const failure = take(Call::pthreadCreate);
    return failure == nullptr ? support::kPassThrough : failure->number;
}

/// Notes whether the calling thread has used up what it was granted.
void noteMemory()
{
    void *volatile block = std::malloc(1);
    if (block == nullptr) {
        journey.happened = true;
    }
    std::free(block);
}

bool lacksMemory(std::size_t thread, const std::string &step)
{
    const Fault *const fault = journey.fault;
    return fault != nullptr && fault->site.call == Call::memory && fault->site.thread == thread &&
           (thread != 0 || fault->site.step == step);
}

std::function<void *()> threadOf(std::function<void *()> work)
{
    const std::size_t number = ++journey.threads;
    return [number, work = std::move(work)] {
        ownThread = number;
        if (!lacksMemory(number, {})) {
            return work();
        }
        const support::FailingAllocations failing(journey.fault->site.number - 1);
        void *const result = work();
        noteMemory();
        return result;
    };
}

}  // namespace

support::SystemCalls faults::standIns()
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
            // The library's last step there, so that the call may return to the library's caller; nobody else makes it.
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
    journey.fault = fault;
    for (auto &thread : journey.calls) {
        for (auto &calls : thread) {
            calls = 0;
        }
    }
    journey.threads = 0;
    journey.happened = false;
    journey.bytewise = false;
}

bool faults::happened() { return journey.happened; }

std::vector<Site> faults::sites()
{
    std::vector<Site> sites;
    for (std::size_t thread = 0; thread < kThreads; ++thread) {
        for (std::size_t call = 0; call < kCalls; ++call) {
            for (int number = 1; number <= journey.calls[thread][call]; ++number) {
                sites.push_back({static_cast<Call>(call), thread, number});
            }
        }
    }
    return sites;
}

std::size_t faults::threads() { return journey.threads; }

int faults::withMemory(const std::string &step, const std::function<int()> &work)
{
    if (!lacksMemory(0, step)) {
        return work();
    }
    const support::FailingAllocations failing(journey.fault->site.number - 1);
    const int result = work();
    noteMemory();
    return result;
}

}  // namespace reliability
