// The table of the calls that can fail, and of the ways in which each of them does.
#include "reliability/faults.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <span>

namespace reliability {

namespace {

constexpr Error::Kind kNothing = Error::Kind::nothing;
constexpr Error::Kind kOneByte = Error::Kind::oneByte;

constexpr Error error(const char *name, int number) { return {.name = name, .number = number}; }

constexpr Error kSocketErrors[] = {error("EMFILE", EMFILE), error("ENFILE", ENFILE), error("ENOBUFS", ENOBUFS),
                                   error("ENOMEM", ENOMEM), error("EACCES", EACCES), error("EAFNOSUPPORT", EAFNOSUPPORT)};
constexpr Error kInvalid[] = {error("EINVAL", EINVAL)};
constexpr Error kOptionErrors[] = {error("EINVAL", EINVAL), error("ENOMEM", ENOMEM)};
constexpr Error kConnectLocalErrors[] = {error("ECONNREFUSED", ECONNREFUSED), error("ENOENT", ENOENT), error("EAGAIN", EAGAIN),
                                         error("EACCES", EACCES), error("EINTR", EINTR)};
constexpr Error kConnectRemoteErrors[] = {error("ECONNREFUSED", ECONNREFUSED),
                                          error("ETIMEDOUT", ETIMEDOUT),
                                          error("ENETUNREACH", ENETUNREACH),
                                          error("EHOSTUNREACH", EHOSTUNREACH),
                                          error("EPERM", EPERM),
                                          error("EADDRNOTAVAIL", EADDRNOTAVAIL),
                                          error("EINTR", EINTR)};
constexpr Error kUnlinkErrors[] = {error("EPERM", EPERM), error("EACCES", EACCES), error("EROFS", EROFS)};
constexpr Error kBindErrors[] = {error("EADDRINUSE", EADDRINUSE), error("ENOENT", ENOENT), error("EACCES", EACCES),
                                 error("EROFS", EROFS), error("ENOMEM", ENOMEM)};
constexpr Error kListenErrors[] = {error("EADDRINUSE", EADDRINUSE)};
constexpr Error kAcceptErrors[] = {error("ECONNABORTED", ECONNABORTED),
                                   error("EMFILE", EMFILE),
                                   error("ENFILE", ENFILE),
                                   error("ENOBUFS", ENOBUFS),
                                   error("ENOMEM", ENOMEM),
                                   error("EINTR", EINTR),
                                   error("EAGAIN", EAGAIN)};
constexpr Error kPollErrors[] = {
    error("EINTR", EINTR), error("ENOMEM", ENOMEM), error("EINVAL", EINVAL), {.name = "time-out", .kind = kNothing}};
constexpr Error kRecvErrors[] = {error("ECONNRESET", ECONNRESET),
                                 error("ETIMEDOUT", ETIMEDOUT),
                                 error("ENOMEM", ENOMEM),
                                 error("EINTR", EINTR),
                                 error("EAGAIN", EAGAIN),
                                 {.name = "end", .kind = kNothing},
                                 {.name = "one byte at a time", .kind = kOneByte}};
constexpr Error kSendErrors[] = {
    error("EPIPE", EPIPE),   error("ETIMEDOUT", ETIMEDOUT), error("ECONNRESET", ECONNRESET),       error("ENOBUFS", ENOBUFS),
    error("EAGAIN", EAGAIN), error("EINTR", EINTR),         {.name = "one byte", .kind = kOneByte}};
constexpr Error kSendtoErrors[] = {error("EPERM", EPERM), error("ENETUNREACH", ENETUNREACH), error("ENOBUFS", ENOBUFS),
                                   error("EINTR", EINTR)};
constexpr Error kOpenErrors[] = {error("ENOENT", ENOENT), error("EACCES", EACCES), error("EMFILE", EMFILE),
                                 error("ENFILE", ENFILE), error("ENOMEM", ENOMEM), error("ENOSPC", ENOSPC),
                                 error("EROFS", EROFS)};
constexpr Error kFopenErrors[] = {error("ENOENT", ENOENT), error("EACCES", EACCES), error("EMFILE", EMFILE),
                                  error("ENFILE", ENFILE), error("ENOMEM", ENOMEM)};
constexpr Error kFstatErrors[] = {error("EIO", EIO), error("EOVERFLOW", EOVERFLOW)};
constexpr Error kReadErrors[] = {error("EIO", EIO),
                                 error("EINTR", EINTR),
                                 {.name = "end", .kind = kNothing},
                                 {.name = "one byte at a time", .kind = kOneByte}};
constexpr Error kWriteErrors[] = {
    error("ENOSPC", ENOSPC), error("EIO", EIO), error("EINTR", EINTR), {.name = "one byte", .kind = kOneByte}};
constexpr Error kConsoleErrors[] = {error("ENOTTY", ENOTTY), error("EPERM", EPERM), error("EBADF", EBADF)};
constexpr Error kSemaphoreInitErrors[] = {error("ENOSYS", ENOSYS)};
constexpr Error kStreamErrors[] = {error("EIO", EIO)};
constexpr Error kNameErrors[] = {error("EFAULT", EFAULT), error("ENAMETOOLONG", ENAMETOOLONG)};
constexpr Error kSelectErrors[] = {error("EINTR", EINTR), error("ENOMEM", ENOMEM), {.name = "time-out", .kind = kNothing}};
constexpr Error kSemaphoreErrors[] = {error("EINTR", EINTR), error("EINVAL", EINVAL), error("ETIMEDOUT", ETIMEDOUT)};
constexpr Error kInterrupted[] = {error("EINTR", EINTR)};
constexpr Error kCloseErrors[] = {error("EINTR", EINTR), error("EIO", EIO)};
constexpr Error kThreadErrors[] = {error("EAGAIN", EAGAIN), error("EPERM", EPERM)};
constexpr Error kMemoryErrors[] = {error("used up", ENOMEM)};

struct Kind {
    const char *name;
    std::span<const Error> errors;
};

constexpr std::array<Kind, kCalls> kKinds = {{{"socket", kSocketErrors},
                                              {"setsockopt", kOptionErrors},
                                              {"getsockopt", kInvalid},
                                              {"connect", kConnectLocalErrors},
                                              {"connect (TCP)", kConnectRemoteErrors},
                                              {"unlink", kUnlinkErrors},
                                              {"bind", kBindErrors},
                                              {"listen", kListenErrors},
                                              {"accept4", kAcceptErrors},
                                              {"poll", kPollErrors},
                                              {"recv", kRecvErrors},
                                              {"send", kSendErrors},
                                              {"sendto", kSendtoErrors},
                                              {"open", kOpenErrors},
                                              {"fstat", kFstatErrors},
                                              {"read", kReadErrors},
                                              {"write", kWriteErrors},
                                              {"ioctl", kConsoleErrors},
                                              {"fopen", kFopenErrors},
                                              {"fgets", kStreamErrors},
                                              {"opendir", kFopenErrors},
                                              {"readdir", kStreamErrors},
                                              {"gethostname", kNameErrors},
                                              {"select", kSelectErrors},
                                              {"sigaction", kInvalid},
                                              {"sem_init", kSemaphoreInitErrors},
                                              {"sem_timedwait", kSemaphoreErrors},
                                              {"clock_nanosleep", kInterrupted},
                                              {"close", kCloseErrors},
                                              {"pthread_create", kThreadErrors},
                                              {"memory", kMemoryErrors}}};

}  // namespace

const char *nameOf(Call call) { return kKinds[static_cast<std::size_t>(call)].name; }
std::span<const Error> errorsOf(Call call) { return kKinds[static_cast<std::size_t>(call)].errors; }

}  // namespace reliability
