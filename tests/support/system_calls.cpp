#include "support/system_calls.h"

#include <dlfcn.h>
#include <utility>

namespace support {

namespace {

SystemCalls inPlace;

template <class Function>
Function *original(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

/// Asks the stand-in, if there is one, and the system where it does not want the call.
template <class StandIn, class System, class... Arguments>
auto ask(const StandIn &standIn, System system, Arguments... arguments)
{
    if (standIn) {
        const auto answer = standIn(arguments...);
        if (answer != kPass) {
            return answer;
        }
    }
    return system();
}

}  // namespace

WithSystemCalls::WithSystemCalls(SystemCalls calls) { inPlace = std::move(calls); }
WithSystemCalls::~WithSystemCalls() { inPlace = {}; }

}  // namespace support

// In place of the C library's: the dynamic linker binds the library's calls to the program's own definitions.
extern "C" {

int connect(int fd, const sockaddr *address, socklen_t length)
{
    static auto *const system = support::original<int(int, const sockaddr *, socklen_t)>("connect");
    return support::ask(
        support::inPlace.connect, [=] { return system(fd, address, length); }, fd, address, length);
}

ssize_t recv(int fd, void *bytes, std::size_t length, int flags)
{
    static auto *const system = support::original<ssize_t(int, void *, std::size_t, int)>("recv");
    return support::ask(
        support::inPlace.recv, [=] { return system(fd, bytes, length, flags); }, fd, bytes, length, flags);
}

ssize_t send(int fd, const void *bytes, std::size_t length, int flags)
{
    static auto *const system = support::original<ssize_t(int, const void *, std::size_t, int)>("send");
    return support::ask(
        support::inPlace.send, [=] { return system(fd, bytes, length, flags); }, fd, bytes, length, flags);
}

ssize_t sendto(int fd, const void *bytes, std::size_t length, int flags, const sockaddr *address, socklen_t addressLength)
{
    static auto *const system =
        support::original<ssize_t(int, const void *, std::size_t, int, const sockaddr *, socklen_t)>("sendto");
    return support::ask(
        support::inPlace.sendto, [=] { return system(fd, bytes, length, flags, address, addressLength); }, fd, bytes, length,
        address);
}

int setsockopt(int fd, int level, int option, const void *value, socklen_t length) noexcept
{
    static auto *const system = support::original<int(int, int, int, const void *, socklen_t)>("setsockopt");
    return support::ask(
        support::inPlace.setsockopt, [=] { return system(fd, level, option, value, length); }, fd, level, option);
}

int pthread_create(pthread_t *id, const pthread_attr_t *attributes, void *(*start)(void *), void *argument) noexcept
{
    static auto *const system =
        support::original<int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)>("pthread_create");
    return support::ask(support::inPlace.pthreadCreate, [=] { return system(id, attributes, start, argument); });
}
}
