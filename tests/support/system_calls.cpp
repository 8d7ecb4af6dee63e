#include "support/system_calls.h"

#include <atomic>
#include <cstdarg>
#include <dlfcn.h>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <utility>

namespace support {

namespace {

std::shared_ptr<const SystemCalls> inPlace;
std::mutex inPlaceLock;
std::atomic<bool> anyInPlace{false};  // all that is looked at where nothing is, so also long before main

/// The stand-ins as they are now, to be called while others may take them away.
std::shared_ptr<const SystemCalls> current()
{
    if (!anyInPlace.load()) {
        return nullptr;
    }
    const std::lock_guard lock(inPlaceLock);
    return inPlace;
}

template <class Function>
Function *original(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

/// Asks the stand-in, if there is one, and the system where it does not want the call.
template <class StandIn, class System, class... Arguments>
auto ask(StandIn SystemCalls::*call, System system, Arguments... arguments)
{
    if (const auto calls = current(); calls != nullptr && (*calls).*call) {
        const auto answer = ((*calls).*call)(arguments...);
        if (answer != kPass) {
            return answer;
        }
    }
    return system();
}

void replace(std::shared_ptr<const SystemCalls> calls)
{
    const std::lock_guard lock(inPlaceLock);
    inPlace = std::move(calls);
    anyInPlace = inPlace != nullptr;
}

}  // namespace

WithSystemCalls::WithSystemCalls(SystemCalls calls) { replace(std::make_shared<const SystemCalls>(std::move(calls))); }
WithSystemCalls::~WithSystemCalls() { replace(nullptr); }

}  // namespace support

// In place of the C library's: the dynamic linker binds the library's calls to the program's own definitions.
extern "C" {

int socket(int domain, int type, int protocol) noexcept
{
    static auto *const system = support::original<int(int, int, int)>("socket");
    return support::ask(
        &support::SystemCalls::socket, [=] { return system(domain, type, protocol); }, domain);
}

int bind(int fd, const sockaddr *address, socklen_t length) noexcept
{
    static auto *const system = support::original<int(int, const sockaddr *, socklen_t)>("bind");
    return support::ask(
        &support::SystemCalls::bind, [=] { return system(fd, address, length); }, fd, address, length);
}

int listen(int fd, int backlog) noexcept
{
    static auto *const system = support::original<int(int, int)>("listen");
    return support::ask(
        &support::SystemCalls::listen, [=] { return system(fd, backlog); }, fd, backlog);
}

int accept4(int fd, sockaddr *address, socklen_t *length, int flags)
{
    static auto *const system = support::original<int(int, sockaddr *, socklen_t *, int)>("accept4");
    return support::ask(
        &support::SystemCalls::accept4, [=] { return system(fd, address, length, flags); }, fd);
}

int poll(pollfd *descriptors, nfds_t count, int milliseconds)
{
    static auto *const system = support::original<int(pollfd *, nfds_t, int)>("poll");
    return support::ask(
        &support::SystemCalls::poll, [=] { return system(descriptors, count, milliseconds); }, descriptors, count,
        milliseconds);
}

int select(int count, fd_set *reading, fd_set *writing, fd_set *failing, timeval *time)
{
    static auto *const system = support::original<int(int, fd_set *, fd_set *, fd_set *, timeval *)>("select");
    return support::ask(
        &support::SystemCalls::select, [=] { return system(count, reading, writing, failing, time); }, time);
}

int open(const char *path, int flags, ...)
{
    static auto *const system = support::original<int(const char *, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return support::ask(
        &support::SystemCalls::open, [=] { return system(path, flags, mode); }, path, flags, mode);
}

int connect(int fd, const sockaddr *address, socklen_t length)
{
    static auto *const system = support::original<int(int, const sockaddr *, socklen_t)>("connect");
    return support::ask(
        &support::SystemCalls::connect, [=] { return system(fd, address, length); }, fd, address, length);
}

ssize_t recv(int fd, void *bytes, std::size_t length, int flags)
{
    static auto *const system = support::original<ssize_t(int, void *, std::size_t, int)>("recv");
    return support::ask(
        &support::SystemCalls::recv, [=] { return system(fd, bytes, length, flags); }, fd, bytes, length, flags);
}

ssize_t send(int fd, const void *bytes, std::size_t length, int flags)
{
    static auto *const system = support::original<ssize_t(int, const void *, std::size_t, int)>("send");
    return support::ask(
        &support::SystemCalls::send, [=] { return system(fd, bytes, length, flags); }, fd, bytes, length, flags);
}

ssize_t sendto(int fd, const void *bytes, std::size_t length, int flags, const sockaddr *address, socklen_t addressLength)
{
    static auto *const system =
        support::original<ssize_t(int, const void *, std::size_t, int, const sockaddr *, socklen_t)>("sendto");
    return support::ask(
        &support::SystemCalls::sendto, [=] { return system(fd, bytes, length, flags, address, addressLength); }, fd, bytes,
        length, address);
}

int setsockopt(int fd, int level, int option, const void *value, socklen_t length) noexcept
{
    static auto *const system = support::original<int(int, int, int, const void *, socklen_t)>("setsockopt");
    return support::ask(
        &support::SystemCalls::setsockopt, [=] { return system(fd, level, option, value, length); }, fd, level, option);
}

int pthread_create(pthread_t *id, const pthread_attr_t *attributes, void *(*start)(void *), void *argument) noexcept
{
    static auto *const system =
        support::original<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)>("pthread_create");
    return support::ask(&support::SystemCalls::pthreadCreate, [=] { return system(id, attributes, start, argument); });
}
}
