#include "support/system_calls.h"

#include "support/failing_allocations.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <memory>
#include <mutex>
#include <semaphore.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace support {

namespace {

std::shared_ptr<const SystemCalls> inPlace;
std::mutex inPlaceLock;
std::atomic<bool> anyInPlace{false};  // without replacements only this is read, so calls before main are safe

/// The current replacements. The result stays valid while another thread removes them.
std::shared_ptr<const SystemCalls> current()
{
    if (!anyInPlace.load()) {
        return nullptr;
    }
    const std::lock_guard lock(inPlaceLock);
    return inPlace;
}

/// The C library's own function. Where off_t is wider than long, calls that use it are compiled as "fstat64" and so on.
template <class Function>
Function *original(const char *name)
{
    if (sizeof(off_t) > sizeof(long)) {
        const WorkingAllocations dlsymMayAllocate;
        std::array<char, 32> wideName;
        std::snprintf(wideName.data(), wideName.size(), "%s64", name);
        if (void *const wide = dlsym(RTLD_NEXT, wideName.data()); wide != nullptr) {
            return reinterpret_cast<Function *>(wide);
        }
    }
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

/// Return address of the current call.
thread_local const void *caller = nullptr;

struct Range {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
};

/// The address range of the library's code.
Range findLibrary()
{
    Range range;
    dl_iterate_phdr(
        [](dl_phdr_info *object, std::size_t, void *found) {
            if (std::string_view(object->dlpi_name).find("/libkvo_hws.so") == std::string_view::npos) {
                return 0;
            }
            for (int part = 0; part < object->dlpi_phnum; ++part) {
                const auto &header = object->dlpi_phdr[part];
                if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
                    const std::uintptr_t begin = object->dlpi_addr + header.p_vaddr;
                    *static_cast<Range *>(found) = {begin, begin + header.p_memsz};
                }
            }
            return 1;
        },
        &range);
    return range;
}

/// Calls the replacement if there is one, and the system if it returns kPassThrough. @p from is the call's return address.
template <class Replacement, class System, class... Arguments>
auto dispatch(const void *from, Replacement SystemCalls::*call, System system, Arguments... arguments)
{
    if (const auto calls = current(); calls != nullptr && (*calls).*call) {
        caller = from;
        const auto answer = ((*calls).*call)(arguments...);
        if (answer != kPassThrough) {
            return answer;
        }
    }
    return system();
}

/// Like dispatch, for a call that returns a pointer.
template <class Replacement, class System, class... Arguments>
auto dispatchUnlessItFails(const void *from, Replacement SystemCalls::*fails, System system, Arguments... arguments)
    -> decltype(system())
{
    if (const auto calls = current(); calls != nullptr && (*calls).*fails) {
        caller = from;
        if (((*calls).*fails)(arguments...)) {
            return nullptr;
        }
    }
    return system();
}

/// The work that a replacement gives a new thread of the library; null if no replacement does.
std::unique_ptr<std::function<void *()>> threadWork(const void *from, void *(*start)(void *), void *argument)
{
    const auto calls = current();
    caller = from;
    if (calls == nullptr || !calls->threadWork || !calledByLibrary()) {
        return nullptr;
    }
    return std::make_unique<std::function<void *()>>(calls->threadWork([=] { return start(argument); }));
}

void *runThread(void *work)
{
    const std::unique_ptr<std::function<void *()>> owned(static_cast<std::function<void *()> *>(work));
    return (*owned)();
}

void replace(std::shared_ptr<const SystemCalls> calls)
{
    const std::lock_guard lock(inPlaceLock);
    inPlace = std::move(calls);
    anyInPlace = inPlace != nullptr;
}

}  // namespace

bool calledByLibrary()
{
    static const Range library = findLibrary();
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    return address >= library.begin && address < library.end;
}

WithSystemCalls::WithSystemCalls(SystemCalls calls) { replace(std::make_shared<const SystemCalls>(std::move(calls))); }
WithSystemCalls::~WithSystemCalls() { replace(nullptr); }

}  // namespace support

using support::current;
using support::dispatch;
using support::dispatchUnlessItFails;
using support::original;
using support::runThread;
using support::SystemCalls;
using support::threadWork;
using support::WorkingAllocations;

// Replaces the C library's functions: the dynamic linker binds the library's calls to the program's definitions.
extern "C" {

int socket(int domain, int type, int protocol) noexcept
{
    static auto *const system = original<int(int, int, int)>("socket");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::socket, [=] { return system(domain, type, protocol); }, domain);
}

int bind(int fd, const sockaddr *address, socklen_t length) noexcept
{
    static auto *const system = original<int(int, const sockaddr *, socklen_t)>("bind");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::bind, [=] { return system(fd, address, length); }, fd, address, length);
}

int listen(int fd, int backlog) noexcept
{
    static auto *const system = original<int(int, int)>("listen");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::listen, [=] { return system(fd, backlog); }, fd, backlog);
}

int accept4(int fd, sockaddr *address, socklen_t *length, int flags)
{
    static auto *const system = original<int(int, sockaddr *, socklen_t *, int)>("accept4");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::accept4, [=] { return system(fd, address, length, flags); }, fd);
}

int poll(pollfd *descriptors, nfds_t count, int milliseconds)
{
    static auto *const system = original<int(pollfd *, nfds_t, int)>("poll");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::poll, [=] { return system(descriptors, count, milliseconds); }, descriptors,
        count, milliseconds);
}

int select(int count, fd_set *reading, fd_set *writing, fd_set *failing, timeval *time)
{
    static auto *const system = original<int(int, fd_set *, fd_set *, fd_set *, timeval *)>("select");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::select, [=] { return system(count, reading, writing, failing, time); },
        time);
}

int open(const char *path, int flags, ...)
{
    static auto *const system = original<int(const char *, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return dispatch(
        __builtin_return_address(0), &SystemCalls::open, [=] { return system(path, flags, mode); }, path, flags, mode);
}

int connect(int fd, const sockaddr *address, socklen_t length)
{
    static auto *const system = original<int(int, const sockaddr *, socklen_t)>("connect");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::connect, [=] { return system(fd, address, length); }, fd, address, length);
}

ssize_t recv(int fd, void *bytes, std::size_t length, int flags)
{
    static auto *const system = original<ssize_t(int, void *, std::size_t, int)>("recv");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::recv, [=] { return system(fd, bytes, length, flags); }, fd, bytes, length,
        flags);
}

ssize_t send(int fd, const void *bytes, std::size_t length, int flags)
{
    static auto *const system = original<ssize_t(int, const void *, std::size_t, int)>("send");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::send, [=] { return system(fd, bytes, length, flags); }, fd, bytes, length,
        flags);
}

ssize_t sendto(int fd, const void *bytes, std::size_t length, int flags, const sockaddr *address, socklen_t addressLength)
{
    static auto *const system = original<ssize_t(int, const void *, std::size_t, int, const sockaddr *, socklen_t)>("sendto");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::sendto,
        [=] { return system(fd, bytes, length, flags, address, addressLength); }, fd, bytes, length, address);
}

int setsockopt(int fd, int level, int option, const void *value, socklen_t length) noexcept
{
    static auto *const system = original<int(int, int, int, const void *, socklen_t)>("setsockopt");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::setsockopt, [=] { return system(fd, level, option, value, length); }, fd,
        level, option);
}

int pthread_create(pthread_t *id, const pthread_attr_t *attributes, void *(*start)(void *), void *argument) noexcept
{
    static auto *const system = original<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)>("pthread_create");
    const void *const from = __builtin_return_address(0);
    return dispatch(from, &SystemCalls::pthreadCreate, [=] {
        auto work = [=] {
            const WorkingAllocations replacementMayAllocate;
            return threadWork(from, start, argument);
        }();
        const int error =
            work == nullptr ? system(id, attributes, start, argument) : system(id, attributes, runThread, work.get());
        if (error == 0) {
            static_cast<void>(work.release());
            if (const auto calls = current(); calls != nullptr && calls->threadCreated) {
                calls->threadCreated();
            }
        }
        return error;
    });
}

int pthread_kill(pthread_t thread, int signal) noexcept
{
    static auto *const system = original<int(pthread_t, int)>("pthread_kill");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::pthreadKill, [=] { return system(thread, signal); }, thread);
}

int getsockopt(int fd, int level, int option, void *value, socklen_t *length) noexcept
{
    static auto *const system = original<int(int, int, int, void *, socklen_t *)>("getsockopt");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::getsockopt, [=] { return system(fd, level, option, value, length); }, fd,
        level, option);
}

int unlink(const char *path) noexcept
{
    static auto *const system = original<int(const char *)>("unlink");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::unlink, [=] { return system(path); }, path);
}

int close(int fd)
{
    static auto *const system = original<int(int)>("close");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::close, [=] { return system(fd); }, fd);
}

int fstat(int fd, struct stat *status) noexcept
{
    static auto *const system = original<int(int, struct stat *)>("fstat");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::fstat, [=] { return system(fd, status); }, fd);
}

ssize_t read(int fd, void *bytes, std::size_t length)
{
    static auto *const system = original<ssize_t(int, void *, std::size_t)>("read");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::read, [=] { return system(fd, bytes, length); }, fd, bytes, length);
}

ssize_t write(int fd, const void *bytes, std::size_t length)
{
    static auto *const system = original<ssize_t(int, const void *, std::size_t)>("write");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::write, [=] { return system(fd, bytes, length); }, fd, bytes, length);
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    static auto *const system = original<int(int, unsigned long, ...)>("ioctl");
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);  // as wide as any possible argument
    va_end(arguments);
    return dispatch(
        __builtin_return_address(0), &SystemCalls::ioctl, [=] { return system(fd, request, argument); }, fd, request, argument);
}

int sigaction(int signal, const struct sigaction *action, struct sigaction *before) noexcept
{
    static auto *const system = original<int(int, const struct sigaction *, struct sigaction *)>("sigaction");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::sigaction, [=] { return system(signal, action, before); }, signal);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec *time, timespec *left)
{
    static auto *const system = original<int(clockid_t, int, const timespec *, timespec *)>("clock_nanosleep");
    return dispatch(
        __builtin_return_address(0), &SystemCalls::clockNanosleep, [=] { return system(clock, flags, time, left); }, time);
}

int sem_init(sem_t *semaphore, int shared, unsigned value) noexcept
{
    static auto *const system = original<int(sem_t *, int, unsigned)>("sem_init");
    return dispatch(__builtin_return_address(0), &SystemCalls::semInit, [=] { return system(semaphore, shared, value); });
}

int sem_timedwait(sem_t *semaphore, const timespec *deadline)
{
    static auto *const system = original<int(sem_t *, const timespec *)>("sem_timedwait");
    return dispatch(__builtin_return_address(0), &SystemCalls::semTimedwait, [=] { return system(semaphore, deadline); });
}

int gethostname(char *name, std::size_t length) noexcept
{
    static auto *const system = original<int(char *, std::size_t)>("gethostname");
    return dispatch(__builtin_return_address(0), &SystemCalls::gethostname, [=] { return system(name, length); });
}

FILE *fopen(const char *path, const char *mode)
{
    static auto *const system = original<FILE *(const char *, const char *)>("fopen");
    return dispatchUnlessItFails(
        __builtin_return_address(0), &SystemCalls::fopenFails, [=] { return system(path, mode); }, path);
}

char *fgets(char *line, int size, FILE *file)
{
    static auto *const system = original<char *(char *, int, FILE *)>("fgets");
    return dispatchUnlessItFails(__builtin_return_address(0), &SystemCalls::fgetsFails,
                                 [=] { return system(line, size, file); });
}

DIR *opendir(const char *path)
{
    static auto *const system = original<DIR *(const char *)>("opendir");
    return dispatchUnlessItFails(
        __builtin_return_address(0), &SystemCalls::opendirFails, [=] { return system(path); }, path);
}

dirent *readdir(DIR *directory)
{
    static auto *const system = original<dirent *(DIR *)>("readdir");
    return dispatchUnlessItFails(__builtin_return_address(0), &SystemCalls::readdirFails, [=] { return system(directory); });
}
}
